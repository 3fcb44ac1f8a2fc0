// method4/m4_format.h - the stream of method 4: raw head, symbols, their contexts
//
// A stream is the block's first byte, then what the range coder makes of the symbols and the extra
// bits of each token (coding/main_alphabet.h).  The block's length ends it.
//
//     literal   the byte, by the main model of its context
//     match     the length, by the main model of its context; for a long one the slot of the rest,
//               by the length model, and its extra bits; then the slot of the distance, by the
//               distance model, and its extra bits
//
// The context is the last byte before the token, of which the lowest lit_ctx_bits count.
//
// Nothing here has state.  Encoder and decoder both include this file, and neither repeats a
// number of it.
#pragma once

#include "coding/main_alphabet.h"

#include <algorithm>

namespace quarnex {

inline constexpr u32 m4_contexts = 256;

/// The part of a byte that is a context.
constexpr u32 m4_context_mask(u32 lit_ctx_bits)
{
    return (1U << std::min(lit_ctx_bits, 8U)) - 1;
}

/// What a symbol adds to its count.
inline constexpr u32 m4_main_step = 2;
inline constexpr u32 m4_slot_step = 1;

/// Counts in the first period of a model; each is twice as long as the one before it.
inline constexpr u32 m4_first_period = 2;
/// Counts in the longest period, as which all later ones are.
inline constexpr u32 m4_last_period = 2048;
/// Counts are halved when their sum is above this.
inline constexpr u32 m4_largest_total = 30719;

/// Shares of the interval are in units of 2^-15.
inline constexpr u32 m4_total_bits = 15;
static_assert(m4_largest_total + m4_last_period < 1U << m4_total_bits);

/// The most bits that are coded in one step.
inline constexpr u32 m4_direct_bits = 24;

} // namespace quarnex
