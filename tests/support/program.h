// support/program.h - runs the real program
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quarnex::test {

/// What became of a run.
struct program_result {
    int status = -1; // exit status in a byte, or 128 + signal as a shell counts
    std::string out; // standard output
    std::string err; // standard error
};

struct program_options {
    std::string work_dir;          // empty: that of the test
    std::string argv0 = "quarnex"; // what the program is called by
    bool err_is_terminal = false;  // standard error is a terminal, not a pipe
    bool translates_paths = true;  // arguments and output have slashes where the system has others
    std::function<void()>
        before_exec;          // runs in the child, for limits; only async-signal-safe calls
    int timeout_seconds = 60; // then the program is killed: a hang fails the test with status 137
};

/// Runs the program under test with `arguments` (without its own name), its input empty, and waits
/// for its end.
program_result run_program(const std::vector<std::string>& arguments,
                           const program_options& options = {});

/// The file with the tests themselves.
std::string own_executable();

/// Whether the whole of `text` matches an extended regular expression.
bool matches(const std::string& text, const std::string& pattern);

} // namespace quarnex::test
