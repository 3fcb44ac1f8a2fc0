// method4/m4_format.h - the stream of method 4: constants
//
// A stream is the block's first byte, raw, then the output of the range coder for the symbols and
// extra bits of each token (coding/main_alphabet.h).  The block's length ends it.
//
//     literal   the byte, by the main model of its context
//     match     the length, by the main model of its context; for a long one the slot of the
//               excess, by the length model, and its extra bits; then the slot of the distance, by
//               the distance model, and its extra bits
//
// The context is the lowest lit_ctx_bits bits of the byte before the token.
//
// Encoder and decoder both include this file; neither repeats a number of it.
#pragma once

#include "coding/main_alphabet.h"

#include <algorithm>

namespace quarnex {

inline constexpr u32 m4_contexts = 256;

/// Returns the mask that reduces a byte to a context.
constexpr u32 m4_context_mask(u32 lit_ctx_bits)
{
    return (1U << std::min(lit_ctx_bits, 8U)) - 1;
}

/// The increment of a symbol's count.
inline constexpr u32 m4_main_step = 2;
inline constexpr u32 m4_slot_step = 1;

/// Growth of the counts in the first period of a model; each period is twice as long as the
/// previous one.
inline constexpr u32 m4_first_period = 2;
/// Growth in the longest periods.
inline constexpr u32 m4_max_period = 2048;
/// Counts are halved when their sum is above this.
inline constexpr u32 m4_max_total = 30719;

/// Shares of the interval are in units of 2^-15.
inline constexpr u32 m4_total_bits = 15;
static_assert(m4_max_total + m4_max_period < 1U << m4_total_bits);

} // namespace quarnex
