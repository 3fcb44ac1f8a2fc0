// coding/sorted_search.h - linear search in a sorted array, eight numbers at a time
//
// For symbol look-up in cumulative frequencies: with a start close to the result, a linear search
// with SSE2 takes fewer mispredicted branches than a binary one.
#pragma once

#include "common/types.h"

#include <bit>
#include <cassert>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quarnex {

/// Numbers that are compared in one step.
inline constexpr u32 sorted_group = 8;

/// Returns how many of the sorted_group numbers at `sorted`, in non-decreasing order, are not above
/// `limit`.
inline u32 count_not_above_portably(const u16* sorted, u32 limit)
{
    u32 count = 0;
    for (u32 i = 0; i < sorted_group; ++i) count += sorted[i] <= limit ? 1 : 0;
    return count;
}

/// The same with SSE2, if available.  `limit` is below 2^16.
inline u32 count_not_above(const u16* sorted, u32 limit)
{
    assert(limit <= UINT16_MAX);
#if defined(__SSE2__)
    const __m128i numbers = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sorted));
    const __m128i excess = _mm_subs_epu16(numbers, _mm_set1_epi16(static_cast<short>(limit)));
    const int above = ~_mm_movemask_epi8(_mm_cmpeq_epi16(excess, _mm_setzero_si128()));
    return static_cast<u32>(std::countr_zero(static_cast<u32>(above))) / 2;
#else
    return count_not_above_portably(sorted, limit);
#endif
}

/// Returns the index of the last number not above `limit`, searching up from `first`; the number at
/// `first` must not be above it.  The array must end with sorted_group numbers above `limit`.
inline u32 find_last_not_above(const u16* sorted, u32 first, u32 limit)
{
    assert(sorted[first] <= limit);
    u32 index = first;
    u32 count = sorted_group;
    while (count == sorted_group) {
        count = count_not_above(sorted + index + 1, limit);
        index += count;
    }
    return index;
}

} // namespace quarnex
