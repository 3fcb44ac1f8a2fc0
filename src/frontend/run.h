// frontend/run.h - one run of the program
#pragma once

namespace quarnex {

/// Executes the command line and returns the exit status of the process.
int run(int argc, const char* const* argv);

} // namespace quarnex
