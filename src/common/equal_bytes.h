// common/equal_bytes.h - length of the common prefix of two strings
#pragma once

#include "common/bytes.h"

#include <algorithm>
#include <bit>

namespace quarnex {

/// Bytes that equal_bytes() may read past its limit.
inline constexpr u32 equal_bytes_overread = 7;

/// Length of the common prefix of `a` and `b`, at most `limit`.  Compares eight bytes at a time and
/// so reads up to equal_bytes_overread bytes past the limit.
inline u32 equal_bytes(const u8* a, const u8* b, u32 limit)
{
    for (u32 len = 0; len < limit; len += 8) {
        const u64 difference = load_u64(a + len) ^ load_u64(b + len);
        if (difference != 0) {
            return std::min(len + static_cast<u32>(std::countr_zero(difference)) / 8, limit);
        }
    }
    return limit;
}

} // namespace quarnex
