// support/start_program.h - starts a process and collects its output; implemented per system
#pragma once

#include "support/program.h"

namespace quarnex::test {

/// Runs the program at `path` with the arguments `words`, starting with argv[0], and waits for its
/// end.
program_result start_program(const std::string& path, std::vector<std::string> words,
                             const program_options& options);

} // namespace quarnex::test
