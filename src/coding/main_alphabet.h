// coding/main_alphabet.h - what methods 3 and 4 have symbols for
//
// A token starts with a symbol of the main alphabet:
//
//     0 to 255      this byte, a literal
//     256 to 286    a match of the shortest length and 0 to 30 bytes more
//     287           a match of 31 bytes more, and what is above that follows as a value
//
// The distance of a match less one follows as a value.  A value is its slot (value_slot.h), as a
// symbol of an alphabet of slots, and the slot's extra bits.
#pragma once

#include "coding/value_slot.h"

namespace quarnex {

inline constexpr u32 literal_symbols = 256;
inline constexpr u32 short_lengths = 31;
inline constexpr u32 long_length_symbol = literal_symbols + short_lengths;
inline constexpr u32 main_symbols = long_length_symbol + 1;

/// Bytes at the block's start that are sent raw.
inline constexpr u32 alphabet_raw_bytes = 1;

/// The number of slots that a block of `len` bytes can need: 17 to 63.  Lengths too fit, which can
/// pass the block's end.
constexpr u32 slot_count(u32 len)
{
    return value_slot(len + 256) + 1;
}
static_assert(slot_count(0) == 17);
static_assert(slot_count(0x7FFFFFFF) < value_slots);

} // namespace quarnex
