// support/program.h - runs the program under test
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quarnex::test {

/// The outcome of a run.
struct program_result {
    int status = -1; // exit status (8 bits), or 128 + signal as in a shell
    std::string out; // standard output
    std::string err; // standard error
};

struct program_options {
    std::string work_dir;          // empty: the test's own
    std::string argv0 = "quarnex"; // name under which the program is called
    bool err_is_terminal = false;  // standard error is a terminal, not a pipe
    bool translates_paths = true;  // replace the system's separators by slashes, and back
    std::function<void()>
        before_exec;          // runs in the child, for limits; only async-signal-safe calls
    int timeout_seconds = 60; // after this the program is killed: status 137
};

/// Runs the program under test with `arguments` (without argv[0]) and empty standard input, and
/// waits for its end.
program_result run_program(const std::vector<std::string>& arguments,
                           const program_options& options = {});

/// Returns the path of the test executable.
std::string own_executable();

/// Returns whether all of `text` matches the extended regular expression `pattern`.
bool matches(const std::string& text, const std::string& pattern);

} // namespace quarnex::test
