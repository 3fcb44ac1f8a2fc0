// tool/console.h - messages on standard error, text on standard output
#pragma once

#include "tool/options.h"

#include <string>
#include <string_view>

namespace tool {

/// Makes text safe for a terminal: control characters, marks that change the direction of text, and
/// bytes that aren't UTF-8 are escaped, such as \x1b.
std::string printable(std::string_view text);

/// Returns the name of a file for messages.
std::string printable(const path& name);

/// Returns the text of a system error (errno).
std::string system_error_text(int error);

/// Returns a size for people, such as "12.3 MiB" or "512 B".
std::string size_text(uint64_t bytes);

/// Returns a summary such as "12.3 MiB -> 4.5 MiB (0.366), 120 MB/s".
std::string sizes_text(uint64_t original, uint64_t compressed, double seconds);

/// Prints messages, one line each: "qrx: NAME: TEXT".
class console {
  public:
    explicit console(int verbosity) : verbosity_(verbosity) {}

    /// An error; printed even with -q.
    void error(const path& name, std::string_view text) const;
    /// An error without a file.
    void error(std::string_view text) const;
    /// Something the user should know; not printed with -q.
    void warn(const path& name, std::string_view text) const;
    void warn(std::string_view text) const;
    /// Printed with -v only.
    void note(const path& name, std::string_view text) const;

    int verbosity() const { return verbosity_; }

  private:
    int verbosity_;
};

/// Prints a line on standard output.  A write error is remembered for close_output().
void print_line(std::string_view line);

/// Flushes the lines printed so far.
void flush_output();

/// Closes standard output; returns an errno value, 0 if everything was written.
int close_output();

} // namespace tool
