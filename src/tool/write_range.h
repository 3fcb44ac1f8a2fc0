// tool/write_range.h - writes the original, or a range of it, to an output
#pragma once

#include "tool/library.h"

namespace tool {

/// Where decoded bytes go.
struct destination {
    output_file& file;
    path name; // "-" for standard output
    uint64_t offset = 0;
};

/// Decodes the part of `range` that the original has, and appends it to `dest`.  Decodes no block
/// outside the range.  If the whole file is written, faults of its layout are reported too.  Bytes
/// before damage are written.  Reports failures and returns the exit status.
int write_range(const session& run, const path& name, open_reader& input, byte_range range,
                destination& dest);

} // namespace tool
