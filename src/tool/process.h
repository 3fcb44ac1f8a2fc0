// tool/process.h - command line, terminals and signals; implemented per system
#pragma once

#include "tool/options.h"

#include <string>
#include <vector>

namespace tool {

/// Prepares signals and standard streams: interruption removes temporary files, a file size limit
/// is an error instead of a signal.
void prepare_process();

/// Makes free() return large blocks to the system at once.  By default, glibc raises its mmap
/// threshold to the size of a freed block, allocates later ones on the heap, and keeps up to 64 MiB
/// of free memory there.
void release_freed_memory();

/// Names the file that interruption removes, instead of an earlier one; an empty name for none.
/// Only for POSIX: on Windows, the system deletes incomplete files with the process.
void remove_if_interrupted(const std::string& name);

/// The command line in UTF-8, which main() doesn't get on Windows.
std::vector<std::string> command_line_words(int argc, char** argv);

bool stdin_is_terminal();
bool stdout_is_terminal();
bool stderr_is_terminal();
/// Columns of the terminal on standard error, 80 if unknown.
unsigned terminal_columns();
/// Asks on the terminal, and returns whether the answer is yes.  False without a terminal.
bool ask_on_terminal(const std::string& question);

} // namespace tool
