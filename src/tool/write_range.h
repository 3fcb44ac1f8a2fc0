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

/// Decodes the bytes `range` of the original, as far as it has them, and appends them to `dest`.
/// Decodes no block outside the range; the faults of a file that is written whole include those of
/// its layout.  Reports failures and returns the exit status; the bytes before damage are written.
int write_range(const session& run, const path& name, open_reader& input, byte_range range,
                destination& dest);

} // namespace tool
