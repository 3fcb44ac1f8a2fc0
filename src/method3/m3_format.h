// method3/m3_format.h - the stream of method 3: raw head, symbols, codes that are never sent
//
// A stream is the block's first byte, then one string of bits, the most significant bit of each
// byte first, filled up with zeros to a whole byte.  The block's length ends it.
//
//     literal   main code of the byte
//     match     main code of the length (coding/main_alphabet.h); for a long one the length code of
//               a slot, and its extra bits; then the distance code of a slot, and its extra bits
//
// The three codes are prefix codes.  Both sides make them from the counts of what has passed, anew
// at the end of each period of the code's own symbols (m3_model.h).  They are canonical, with the
// longest codes lowest: the first of them is all zeros.
//
// Nothing here has state.  Encoder and decoder both include this file, and neither repeats a
// number of it.
#pragma once

#include "coding/main_alphabet.h"

namespace quarnex {

/// The longest code.  A block whose counts ask for a longer one is stored.
inline constexpr u32 m3_max_code_bits = 30;

/// Bytes of the longest token: three codes and two groups of extra bits.
inline constexpr u32 m3_token_max_bytes =
    (3 * m3_max_code_bits + 2 * slot_extra_bits(value_slots - 1) + 7) / 8;

/// Symbols in the first period of a code; each is twice as long as the one before it.
inline constexpr u32 m3_first_period = 16;
/// Symbols in the longest, as which all later ones are.  At its end the order of the symbols is
/// mended in one pass, not sorted.
inline constexpr u32 m3_last_period = 4096;
/// Counts are halved when their sum is above this.
inline constexpr u32 m3_largest_total = 28671;

} // namespace quarnex
