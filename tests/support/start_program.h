// support/start_program.h - a process, its ends and what it says: the part of running the program
// that each system does in its own way
#pragma once

#include "support/program.h"

namespace quarnex::test {

/// Runs the program at `path` with `words`, of which the first is what it is called by, and waits
/// for its end.
program_result start_program(const std::string& path, std::vector<std::string> words,
                             const program_options& options);

} // namespace quarnex::test
