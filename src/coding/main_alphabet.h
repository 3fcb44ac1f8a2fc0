// coding/main_alphabet.h - the main alphabet of methods 3 and 4
//
// Literals and match lengths share one alphabet, as in DEFLATE; each token starts with one of its
// symbols:
//
//     0 to 255      a literal: this byte
//     256 to 286    a match of the minimum length plus 0 to 30
//     287           a match of the minimum length plus 31 or more; the excess follows as a value
//
// A match continues with its distance less one, as a value.  A value is a slot (value_slot.h),
// coded as a symbol of a slot alphabet, and the slot's extra bits.
#pragma once

#include "coding/value_slot.h"

namespace quarnex {

inline constexpr u32 literal_symbols = 256;
inline constexpr u32 short_lengths = 31;
inline constexpr u32 long_length_symbol = literal_symbols + short_lengths;
inline constexpr u32 main_symbols = long_length_symbol + 1;

/// Bytes at the block's start that are sent raw.
inline constexpr u32 alphabet_raw_bytes = 1;

/// Returns the size of the slot alphabets of a block of `len` bytes: 17 to 63.  It covers all
/// distances, and lengths up to 256 past the block's end.
constexpr u32 slot_count(u32 len)
{
    return value_slot(len + 256) + 1;
}
static_assert(slot_count(0) == 17);
static_assert(slot_count(0x7FFFFFFF) < value_slots);

} // namespace quarnex
