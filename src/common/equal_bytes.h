// common/equal_bytes.h - how far two strings agree
#pragma once

#include "common/bytes.h"

#include <algorithm>
#include <bit>

namespace quarnex {

/// Bytes that equal_bytes() may read behind its limit.
inline constexpr u32 equal_bytes_overread = 7;

/// Number of leading bytes in which `a` and `b` agree, at most `limit`.  Compares eight at a time
/// and so reads up to equal_bytes_overread bytes behind the limit.
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
