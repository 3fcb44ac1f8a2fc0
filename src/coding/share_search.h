// coding/share_search.h - symbol search in cumulative shares, four at a time in a 64-bit word
//
// A linear search within a register (SWAR): one addition compares a position with the ends of four
// shares.  The symbol's share is then shifted out of words that are already loaded.  A search that
// yields an index, with vector registers or without, has to load the share by that index, which
// adds the latency of a load to each symbol.
//
// Shares are in units of 2^-15, so a 16-bit lane has room for the carry of its sum.
#pragma once

#include "common/types.h"

#include <bit>
#include <cassert>
#include <cstring>

namespace quarnex {

/// The whole interval, in units of a share.
inline constexpr u32 whole_interval = 1U << 15;

/// 16-bit numbers in a 64-bit word.
inline constexpr u32 word_lanes = 4;

/// A word with 1 in each lane: `number * every_lane` has the number, below 2^16, in all lanes.
inline constexpr u64 every_lane = 0x0001'0001'0001'0001;

/// Returns the four numbers at `src`, the first one in the lowest bits, on any machine.
inline u64 load_lanes_portably(const u16* src)
{
    return u64{src[0]} | u64{src[1]} << 16 | u64{src[2]} << 32 | u64{src[3]} << 48;
}

/// The same in one load on little-endian machines.  (Not every compiler merges the four loads.)
inline u64 load_lanes(const u16* src)
{
    if constexpr (std::endian::native != std::endian::little) return load_lanes_portably(src);
    u64 lanes;
    std::memcpy(&lanes, src, sizeof lanes);
    return lanes;
}

/// Returns a word in which the top bit of each lane tells whether the lane of `lanes` is above
/// `limit`.  Lanes are at most whole_interval, and `limit` is below it, so no sum carries into the
/// next lane.
constexpr u64 lanes_above(u64 lanes, u32 limit)
{
    assert(limit < whole_interval);
    constexpr u64 top_bits = every_lane << 15;
    return (lanes + (whole_interval - 1 - limit) * every_lane) & top_bits;
}

/// A symbol with its share: the interval's part from `start` to `start + width`.
struct symbol_share {
    u32 symbol;
    u32 start;
    u32 width;
};

/// Finds the symbol s with cum[s] <= place < cum[s + 1], searching up from `first`, which must not
/// be above it.  `place` is below whole_interval.  The array is in non-decreasing order and ends
/// with word_lanes numbers of whole_interval, the sentinels.
[[gnu::always_inline]] inline symbol_share find_share(const u16* cum, u32 first, u32 place)
{
    assert(cum[first] <= place);
    u32 symbol = first;
    u64 ends = load_lanes(cum + symbol + 1);
    u64 above = lanes_above(ends, place);
    if (above == 0) [[unlikely]] {
        do {
            symbol += word_lanes;
            ends = load_lanes(cum + symbol + 1);
            above = lanes_above(ends, place);
        } while (above == 0);
    }
    const u64 starts = load_lanes(cum + symbol);
    const u32 shift = static_cast<u32>(std::countr_zero(above)) & 0x30; // of the lane
    return {.symbol = symbol + shift / 16,
            .start = static_cast<u16>(starts >> shift),
            .width = static_cast<u16>((ends - starts) >> shift)};
}

} // namespace quarnex
