// tool/compare.h - compares a compressed file with its original
#pragma once

#include "tool/library.h"

namespace tool {

/// What a comparison found.
struct comparison {
    bool is_equal = false;
    std::optional<uint64_t> first_difference; // offset; none if the sizes differ
};

/// Decodes a compressed file and compares it with `original`, block by block.  Reports the first
/// difference or fault and returns the exit status.  `name` is for messages.
int compare_with_original(const session& run, const path& name, qrx_reader* reader,
                          const observer& watcher, const qrx_source& original,
                          comparison* found = nullptr);
int compare_with_original(const session& run, const path& name, qrx_reader* reader,
                          const observer& watcher, const input_file& original);

} // namespace tool
