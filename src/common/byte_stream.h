// common/byte_stream.h - positioned input and output, through callbacks or in memory
#pragma once

#include "common/types.h"

#include <climits>

namespace quarnex {

struct byte_source {
    /// Reads `size` bytes at `offset`, or fewer at the end; `got` receives their number.  Returns 0
    /// or an error number.
    int (*read)(void* context, u64 offset, u8* dest, usize size, usize& got);
    void* context;
    u64 size;                  // in bytes
    const u8* image = nullptr; // the content, if it is in memory
};

/// Result of byte_sink::write() when there is no room left.
inline constexpr int sink_is_full = INT_MIN;

struct byte_sink {
    /// Writes `size` bytes at `offset`.  Returns 0, an error number or sink_is_full.
    int (*write)(void* context, u64 offset, const u8* src, usize size);
    void* context;
    /// Where the content goes if that is memory.  Bytes that are already in place aren't copied.
    u8* image = nullptr;
    usize capacity = 0; // of the image, in bytes
};

} // namespace quarnex
