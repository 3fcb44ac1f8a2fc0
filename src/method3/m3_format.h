// method3/m3_format.h - the stream of method 3: constants
//
// A stream is the block's first byte, raw, then one string of bits, most significant bit of each
// byte first, padded with zeros to a whole byte.  The block's length ends it.
//
//     literal   main code of the byte
//     match     main code of the length (coding/main_alphabet.h); for a long one the length code of
//               a slot, and its extra bits; then the distance code of a slot, and its extra bits
//
// The three codes are prefix codes.  Both sides rebuild each from the counts of its own symbols at
// the end of each period (m3_model.h), so no code is ever sent.  Codes are canonical; the longest
// have the lowest values, and the first of them is all zeros.
//
// Encoder and decoder both include this file; neither repeats a number of it.
#pragma once

#include "coding/main_alphabet.h"

namespace quarnex {

/// The maximum code length.  A block whose counts require a longer code is stored.
inline constexpr u32 m3_max_code_bits = 30;

/// Maximum bytes of a token: three codes and two groups of extra bits.
inline constexpr u32 m3_token_max_bytes =
    (3 * m3_max_code_bits + 2 * slot_extra_bits(value_slots - 1) + 7) / 8;

/// Symbols in the first period of a code; each period is twice as long as the previous one.
inline constexpr u32 m3_first_period = 16;
/// Symbols in the longest periods.  At their ends the symbols are reordered by a single bubble
/// pass instead of a sort.
inline constexpr u32 m3_max_period = 4096;
/// Counts are halved when their sum is above this.
inline constexpr u32 m3_max_total = 28671;
/// m3_code_lengths() sums counts in 16 bits.
static_assert(m3_max_total + m3_max_period < 1U << 16);

} // namespace quarnex
