// coding/sorted_search.h - where a number belongs among others, eight at a time
#pragma once

#include "common/types.h"

#include <bit>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quarnex {

/// Numbers that are looked at in one step.
inline constexpr u32 sorted_group = 8;

/// How many of the sorted_group numbers at `sorted`, which rise or stay, are not above `limit`.
inline u32 count_not_above_portably(const u16* sorted, u32 limit)
{
    u32 count = 0;
    for (u32 i = 0; i < sorted_group; ++i) count += sorted[i] <= limit ? 1 : 0;
    return count;
}

/// The same.  `limit` is below 2^16.
inline u32 count_not_above(const u16* sorted, u32 limit)
{
#if defined(__SSE2__)
    const __m128i numbers = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sorted));
    const __m128i excess = _mm_subs_epu16(numbers, _mm_set1_epi16(static_cast<short>(limit)));
    const int above = ~_mm_movemask_epi8(_mm_cmpeq_epi16(excess, _mm_setzero_si128()));
    return static_cast<u32>(std::countr_zero(static_cast<u32>(above))) / 2;
#else
    return count_not_above_portably(sorted, limit);
#endif
}

/// The last place, from `first` on, of a number that is not above `limit`; the one at `first` is
/// not.  A group of larger numbers ends the search.
inline u32 find_last_not_above(const u16* sorted, u32 first, u32 limit)
{
    u32 place = first;
    u32 count = sorted_group;
    while (count == sorted_group) {
        count = count_not_above(sorted + place + 1, limit);
        place += count;
    }
    return place;
}

} // namespace quarnex
