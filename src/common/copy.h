// common/copy.h - copies in whole words, for literals and matches
//
// The sizes are constants, so that compilers make each a load and a store.  A match is copied in
// such words, beyond its end; callers keep the slack for it.
#pragma once

#include "common/bytes.h"

#include <array>

namespace quarnex {

/// Bytes that copy_match() may write behind the `len` that were asked for (most for a length of 0).
inline constexpr usize copy_match_overrun = 24;

/// Copies 8 bytes, which must not overlap.
inline void copy_8(u8* to, const u8* from)
{
    std::memcpy(to, from, 8);
}

/// Copies 16 bytes, which must not overlap.
inline void copy_16(u8* to, const u8* from)
{
    std::memcpy(to, from, 16);
}

/// Copies 32 bytes, which must not overlap.
inline void copy_32(u8* to, const u8* from)
{
    std::memcpy(to, from, 32);
}

/// By a distance below 8: the word that keeps the lowest `dist` bytes alone, the factor that
/// repeats them over a word, the multiples of dist at or below 8 and from 16 on.
struct pattern_words {
    std::array<u64, 8> keep{};
    std::array<u64, 8> repeat{};
    std::array<u8, 8> step{};
    std::array<u8, 8> wide{};
};
inline constexpr pattern_words patterns = [] {
    pattern_words words;
    for (u32 dist = 1; dist < 8; ++dist) {
        words.step[dist] = static_cast<u8>(8 / dist * dist);
        words.wide[dist] = static_cast<u8>(15 / dist * dist + dist);
        words.keep[dist] = (u64{1} << (8 * dist)) - 1;
        for (u32 shift = 0; shift < 64; shift += 8 * dist) words.repeat[dist] |= u64{1} << shift;
    }
    return words;
}();

/// Repeats the `dist` bytes in front of `to` (dist 1 to 15) over the 16 bytes from `to` on and
/// returns a multiple of `dist` that is 16 or more and below 32: a distance at which the pattern
/// goes on, wide enough for word copies.  Writes up to 8 bytes more.
inline u32 widen_pattern(u8* to, u32 dist)
{
    if (dist >= 8) {
        copy_8(to, to - dist);
        copy_8(to + 8, to + 8 - dist);
        return 2 * dist;
    }
    const usize step = patterns.step[dist]; // the pattern starts anew behind so many bytes
    const u64 pattern = (load_u64(to - dist) & patterns.keep[dist]) * patterns.repeat[dist];
    store_u64(to, pattern);
    store_u64(to + step, pattern);
    store_u64(to + 2 * step, pattern);
    return patterns.wide[dist];
}

/// Copies `len` bytes to `to` from `dist` bytes before it, as a forward byte copy does: a distance
/// shorter than the length repeats its bytes.  `dist` is 1 or more, and `dist` bytes before `to`
/// exist.  Writes up to copy_match_overrun bytes behind the end, 16 bytes even for a length of 0.
inline void copy_match(u8* to, u32 dist, usize len)
{
    u8* const end = to + len;
    if (dist < 16) {
        const u32 wide = widen_pattern(to, dist);
        to += 16;
        for (; to < end; to += 16) copy_16(to, to - wide);
        return;
    }
    do {
        copy_16(to, to - dist);
        to += 16;
    } while (to < end);
}

} // namespace quarnex
