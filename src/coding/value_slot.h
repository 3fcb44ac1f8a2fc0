// coding/value_slot.h - numbers of 32 bits as a slot and extra bits
//
// The same division as the distance codes of DEFLATE and the position slots of LZX: each power of
// two is split into two slots, which fix the two top bits of a number and the count of the bits
// below them.  Slots are entropy-coded; extra bits are close to random and mostly sent as they are.
//
//     value     0  1  2  3  4-5  6-7  8-11  12-15  16-23 ...
//     slot      0  1  2  3   4    5     6     7      8
#pragma once

#include "common/types.h"

#include <bit>
#include <cassert>

namespace quarnex {

/// Slots of the numbers of 32 bits.
inline constexpr u32 value_slots = 64;

/// Values below this one are their own slots, without extra bits.
inline constexpr u32 plain_slots = 4;

/// Returns the slot of `value`, 0 to 63.
constexpr u32 value_slot(u32 value)
{
    if (value < plain_slots) return value;
    const auto top = static_cast<u32>(std::bit_width(value)) - 1;
    return 2 * top + (value >> (top - 1) & 1);
}

/// Returns the number of extra bits of `slot`, which is plain_slots or more: 1 to 30.
constexpr u32 slot_extra_bits(u32 slot)
{
    assert(slot >= plain_slots && slot < value_slots);
    return (slot >> 1) - 1;
}

/// Returns the lowest value of `slot`, which is plain_slots or more.
constexpr u32 slot_base(u32 slot)
{
    return (2 | (slot & 1)) << slot_extra_bits(slot);
}

} // namespace quarnex
