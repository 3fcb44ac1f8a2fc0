// tool/targets.h - which files are processed, and where their outputs go
#pragma once

#include "tool/library.h"

#include <functional>

namespace tool {

/// A file to process.
struct work_item {
    path source; // "-" for standard input
    path target; // empty for standard output
};

/// How the name of a target is made from that of its source.
enum class renaming {
    add_suffix,   // compressing
    remove_suffix // decompressing
};

/// True if a name ends in ".qrx".
bool has_suffix(const path& name);

/// Processes all operands, with -r also the files in directories, or standard input if there are no
/// operands.  Reports operands that can't be processed.  Returns the largest exit status.
int for_each_item(const session& run, renaming kind,
                  const std::function<int(const work_item&)>& process);

/// Processes all operands of a command without -r.  Reports those that would have the same outputs
/// as an earlier one in another directory (-C).  Returns the largest exit status.
int for_each_operand(const session& run, const std::function<int(const path&)>& process);

/// Returns true if an output may be created: no file has its name, or that file may be overwritten;
/// then `replaces` is set.  Reports the reason if not.
bool may_create(const session& run, const path& target, const file_traits* source, bool& replaces);

/// Creates the directory of an output if -C asks for one, and those below it like the directories
/// in which -r has found the source.  Reports failures.
bool make_directory_of(const session& run, const path& source, const path& target);

/// Returns whether --rm, if it is given, can remove a source: a file with one name, whose output is
/// a file.  Reports the reason if not.
bool may_remove(const session& run, const work_item& item);

/// Removes a source whose output is complete, unless it has changed since its `traits` were read.
/// Reports the reason if it isn't removed.
int remove_source(const session& run, const path& source, const file_traits& traits);

} // namespace tool
