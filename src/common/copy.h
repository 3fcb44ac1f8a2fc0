// common/copy.h - copies in whole words, for literals and matches
//
// Sizes are constants, so that each copy compiles to a load and a store.  Matches are copied in
// words of 16 bytes and so past their end, where callers leave room; copy_match_within() copies the
// matches that have none.  An overlapping match (a distance below 16) is first widened to a period
// of 16 bytes or more; the byte-wise loop that this replaces has a store-to-load dependency for
// every byte.
#pragma once

#include "common/bytes.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace quarnex {

/// Bytes that copy_match() may write past the `len` requested; reached at a length of 0.
inline constexpr usize copy_match_overrun = 24;

/// Copies 8 bytes, which must not overlap.
inline void copy_8(u8* dest, const u8* src)
{
    std::memcpy(dest, src, 8);
}

/// Copies 16 bytes, which must not overlap.
inline void copy_16(u8* dest, const u8* src)
{
    std::memcpy(dest, src, 16);
}

/// Copies 32 bytes, which must not overlap.
inline void copy_32(u8* dest, const u8* src)
{
    std::memcpy(dest, src, 32);
}

/// Constants for repeating a pattern of `dist` bytes, indexed by dist (1 to 7).
struct pattern_words {
    std::array<u64, 8> keep{};   // mask of the lowest dist bytes
    std::array<u64, 8> repeat{}; // factor that repeats them over a word
    std::array<u8, 8> step{};    // the largest multiple of dist up to 8
    std::array<u8, 8> wide{};    // the smallest multiple of dist from 16 on
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

/// Repeats the `dist` bytes before `dest` (dist 1 to 15) over the 16 bytes from `dest` on.  Returns
/// a multiple of `dist`, 16 to 31: a distance at which the pattern continues, wide enough for word
/// copies.  Writes up to 8 bytes more.
inline u32 widen_pattern(u8* dest, u32 dist)
{
    assert(dist >= 1 && dist <= 15);
    if (dist >= 8) {
        copy_8(dest, dest - dist);
        copy_8(dest + 8, dest + 8 - dist);
        return 2 * dist;
    }
    const usize step = patterns.step[dist]; // whole periods of the pattern
    const u64 pattern = (load_u64(dest - dist) & patterns.keep[dist]) * patterns.repeat[dist];
    store_u64(dest, pattern);
    store_u64(dest + step, pattern);
    store_u64(dest + 2 * step, pattern);
    return patterns.wide[dist];
}

/// Copies `len` bytes to `dest` from `dist` bytes before it, with the result of a forward byte
/// copy: a distance shorter than the length repeats bytes.  Requires `dist` of 1 or more, and as
/// many bytes before `dest`.  Writes up to copy_match_overrun bytes past the end; at least 16 bytes
/// even for a length of 0.
[[gnu::always_inline]] inline void copy_match(u8* dest, u32 dist, usize len)
{
    u8* const end = dest + len;
    if (dist < 16) {
        const u32 wide = widen_pattern(dest, dist);
        dest += 16;
        for (; dest < end; dest += 16) copy_16(dest, dest - wide);
        return;
    }
    do {
        copy_16(dest, dest - dist);
        dest += 16;
    } while (dest < end);
}

/// Bytes that copy_match_32() may write past the `len` requested.
inline constexpr usize copy_match_32_overrun = 32;

/// copy_match() that copies 32 bytes at once if the distance is 16 or more: a branch on shorter
/// lengths would often be mispredicted.  Writes up to copy_match_32_overrun bytes past the end; at
/// least 16 bytes even for a length of 0.
[[gnu::always_inline]] inline void copy_match_32(u8* dest, u32 dist, usize len)
{
    if (dist < 16) [[unlikely]] {
        copy_match(dest, dist, len);
        return;
    }
    copy_16(dest, dest - dist);
    copy_16(dest + 16, dest + 16 - dist);
    for (usize done = 32; done < len; done += 16) copy_16(dest + done, dest + done - dist);
}

/// copy_match() that writes only the first `room` bytes at `dest`; `len` is at most `room`.  Out of
/// line: for the last matches of a block.
[[gnu::noinline]] inline void copy_match_within(u8* dest, u32 dist, usize len, usize room)
{
    assert(len <= room);
    usize done = 0;
    if (room > copy_match_overrun) {
        done = std::min(len, room - copy_match_overrun);
        copy_match(dest, dist, done);
    }
    for (u8* at = dest + done; at != dest + len; ++at) *at = *(at - dist);
}

} // namespace quarnex
