// coding/bit_cost.h - logarithms as prices
#pragma once

#include "common/types.h"

#include <array>
#include <bit>

namespace quarnex {

/// log2(value) for value 1 and more, in 1/4096 bits, truncated.
///
/// Squaring a number of 1 to 2 yields the next bit of its logarithm.  With 31 bits behind the
/// point the error of twelve squarings stays far below the distance of any entry of the table from
/// a whole number, so the result is exact and the same on every machine.
constexpr u16 fixed_log2(u32 value)
{
    const u32 whole = static_cast<u32>(std::bit_width(value)) - 1;
    u64 mantissa = u64{value} << (31 - whole);
    u32 log = whole;
    for (int bit = 0; bit < 12; ++bit) {
        mantissa = mantissa * mantissa >> 31;
        const u32 carry = static_cast<u32>(mantissa >> 32);
        log = log << 1 | carry;
        mantissa >>= carry;
    }
    return static_cast<u16>(log);
}

/// Entry i is 4096 x log2(i), truncated: the price of an event of probability p/4096 is
/// bit_cost[4096] - bit_cost[p].  Entry 0 stands for a probability of half a step.
inline constexpr std::array<u16, 4097> bit_cost = [] {
    std::array<u16, 4097> table{};
    table[0] = 0xF000; // -4096
    for (u32 i = 1; i < table.size(); ++i) table[i] = fixed_log2(i);
    return table;
}();

/// The price table's entry for one half.
inline constexpr u16 bit_cost_half = bit_cost[2048];

static_assert(bit_cost[1] == 0 && bit_cost[2] == 0x1000 && bit_cost[4096] == 0xC000);

} // namespace quarnex
