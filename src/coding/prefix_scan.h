// coding/prefix_scan.h - prefix sums and maxima of 16-bit numbers, eight at a time
//
// Three steps combine each number of a vector with those 1, 2 and 4 places before it (Hillis and
// Steele 1986); the last result is carried into the next vector.  Written with SSE2 intrinsics,
// because compilers don't vectorise scans; elsewhere one number at a time.
//
// All arrays are read and written in whole groups of scan_group numbers.
#pragma once

#include "common/types.h"

#include <algorithm>
#include <cassert>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quarnex {

/// Numbers of a vector.
inline constexpr u32 scan_group = 8;

/// Writes (src[0] + ... + src[i]) * scale >> 16 to dest[i], for each i below `count`.  All sums and
/// results must be below 2^16.
inline void scale_prefix_sums_portably(const u16* src, u32 count, u32 scale, u16* dest)
{
    assert(count % scan_group == 0);
    u32 sum = 0;
    for (u32 i = 0; i < count; ++i) {
        sum += src[i];
        dest[i] = static_cast<u16>(u64{sum} * scale >> 16);
    }
}

/// Replaces each of the first `count` numbers by the maximum of it and all numbers before it.
/// Numbers must be below 2^15.
inline void prefix_maxima_portably(u16* numbers, u32 count)
{
    assert(count % scan_group == 0);
    for (u32 i = 1; i < count; ++i) numbers[i] = std::max(numbers[i], numbers[i - 1]);
}

#if defined(__SSE2__)

inline __m128i load_group(const u16* src)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
}
inline void store_group(u16* dest, __m128i group)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dest), group);
}
/// Returns the last number of a group in all places.
inline __m128i repeat_last(__m128i group)
{
    return _mm_shuffle_epi32(_mm_shufflehi_epi16(group, 0xFF), 0xFF);
}

/// The scan of a group: each number combined with those before it, and with those of `before`.
template <class Combine>
[[gnu::always_inline]] inline __m128i scan(__m128i group, __m128i before, Combine combine)
{
    group = combine(group, _mm_slli_si128(group, 2));
    group = combine(group, _mm_slli_si128(group, 4));
    group = combine(group, _mm_slli_si128(group, 8));
    return combine(group, before);
}

/// scale_prefix_sums_portably() with SSE2.
inline void scale_prefix_sums(const u16* src, u32 count, u32 scale, u16* dest)
{
    assert(count % scan_group == 0);
    const __m128i high = _mm_set1_epi16(static_cast<short>(scale >> 16));
    const __m128i low = _mm_set1_epi16(static_cast<short>(scale));
    __m128i before = _mm_setzero_si128();
    for (u32 i = 0; i < count; i += scan_group) {
        const __m128i sums = scan(load_group(src + i), before,
                                  [](__m128i a, __m128i b) { return _mm_add_epi16(a, b); });
        before = repeat_last(sums);
        // sum * scale >> 16 is sum * high + (sum * low >> 16).
        const __m128i whole = _mm_mullo_epi16(sums, high);
        store_group(dest + i, _mm_add_epi16(whole, _mm_mulhi_epu16(sums, low)));
    }
}

/// prefix_maxima_portably() with SSE2, whose maximum is that of signed numbers.
inline void prefix_maxima(u16* numbers, u32 count)
{
    assert(count % scan_group == 0);
    __m128i before = _mm_setzero_si128();
    for (u32 i = 0; i < count; i += scan_group) {
        const __m128i maxima = scan(load_group(numbers + i), before,
                                    [](__m128i a, __m128i b) { return _mm_max_epi16(a, b); });
        before = repeat_last(maxima);
        store_group(numbers + i, maxima);
    }
}

#else

inline void scale_prefix_sums(const u16* src, u32 count, u32 scale, u16* dest)
{
    scale_prefix_sums_portably(src, count, scale, dest);
}
inline void prefix_maxima(u16* numbers, u32 count)
{
    prefix_maxima_portably(numbers, count);
}

#endif

} // namespace quarnex
