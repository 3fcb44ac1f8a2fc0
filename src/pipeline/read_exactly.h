// pipeline/read_exactly.h - reads a number of bytes or reports the failure
#pragma once

#include "common/byte_stream.h"
#include "pipeline/notices.h"

namespace quarnex {

/// Reads exactly `size` bytes.  Reports read errors, and truncation if there are fewer.
[[nodiscard]] inline status read_exactly(const byte_source& file, const listener& watcher,
                                         u64 offset, u8* dest, usize size)
{
    usize got = 0;
    const int error = file.read(file.context, offset, dest, size, got);
    if (error == 0 && got == size) return status::done;
    return watcher.report({.what = error != 0 ? status::read_failed : status::truncated,
                           .offset = offset,
                           .wanted = size,
                           .got = got,
                           .cause = error});
}

} // namespace quarnex
