// common/copy.h - copies in whole words, for literals and matches
//
// All of them write past what was asked, up to the next multiple of their word; callers keep the
// slack for it.  The sizes are constants so that compilers make each a load and a store.
#pragma once

#include "common/bytes.h"

namespace quarnex {

/// Bytes that copy_match() may write behind the `len` that were asked for (16 for a length of 0).
inline constexpr usize copy_match_overrun = 16;

/// Copies 8 bytes.
inline void copy_8(u8* to, const u8* from)
{
    std::memcpy(to, from, 8);
}

/// Copies 16 bytes; all are read before one is written.
inline void copy_16(u8* to, const u8* from)
{
    std::memcpy(to, from, 16);
}

/// Copies 32 bytes; all are read before one is written.
inline void copy_32(u8* to, const u8* from)
{
    std::memcpy(to, from, 32);
}

/// Repeats the `dist` bytes in front of `to` (dist 1 to 15) over the 16 bytes from `to` on and
/// returns the smallest multiple of `dist` that is 16 or more: a distance at which the pattern
/// goes on, wide enough for word copies.
inline u32 widen_pattern(u8* to, u32 dist)
{
    u32 wide = dist;
    const u8* const from = to - dist;
    for (u32 i = 0; i < 16; ++i) to[i] = from[i];
    while (wide < 16) wide += dist;
    return wide;
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
