// coding/bit_cost.h - base-2 logarithms in fixed point, for the prices of modelled events
//
// The table is computed at compile time, in integers, so all machines price alike and choose the
// same tokens.
#pragma once

#include "common/types.h"

#include <array>
#include <bit>

namespace quarnex {

/// Returns log2(value) in 1/4096 bits, truncated.  `value` is 1 or more.
///
/// Repeated squaring: a number in [1, 2) is squared; if the result is 2 or more, the next bit of
/// the logarithm is 1 and the result is halved.  With 31 fractional bits the error of twelve
/// squarings stays far below the distance of any table entry from a multiple of 1/4096, so every
/// entry is exact.
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

/// Entry i is 4096 * log2(i), truncated: an event of probability p/4096 costs
/// bit_cost[4096] - bit_cost[p].  Entry 0 is -4096 modulo 2^16: log2(1/2).
inline constexpr std::array<u16, 4097> bit_cost = [] {
    std::array<u16, 4097> table{};
    table[0] = 0xF000;
    for (u32 i = 1; i < table.size(); ++i) table[i] = fixed_log2(i);
    return table;
}();

/// The entry of the probability 1/2 on a scale of 4096.
inline constexpr u16 bit_cost_half = bit_cost[2048];

static_assert(bit_cost[1] == 0 && bit_cost[2] == 0x1000 && bit_cost[4096] == 0xC000);

} // namespace quarnex
