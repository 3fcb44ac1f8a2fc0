// tool/progress.h - the progress line on a terminal
#pragma once

#include "tool/options.h"

#include <chrono>
#include <string>

namespace tool {

/// One line on standard error that is rewritten a few times per second and erased at the end.
/// Nothing is printed unless standard error is a terminal, and nothing in the first half second of
/// a file.
class progress_line {
  public:
    explicit progress_line(bool is_wanted);

    /// Starts a file; `total` is the size of the original, and `compressed` that of the compressed
    /// file; 0 if unknown.
    void start(const path& name, uint64_t total, uint64_t compressed = 0);
    /// The original has been processed up to `done`.  Called by the library, so it must not throw.
    void advance(uint64_t done) noexcept;
    /// Compressed bytes written so far.
    void set_written(uint64_t bytes) { written_ = bytes; }
    /// Shows a text at once, instead of the figures of a file.
    void status(const std::string& text);
    /// Erases the line.
    void end();

  private:
    using clock = std::chrono::steady_clock;

    void show(double seconds);
    double ratio() const;
    void print(const std::string& text);

    bool is_wanted_;
    bool is_shown_ = false;
    std::string name_;
    uint64_t total_ = 0;
    uint64_t done_ = 0;
    uint64_t compressed_ = 0; // of the whole file
    uint64_t written_ = 0;
    clock::time_point started_;
    clock::time_point shown_;
};

} // namespace tool
