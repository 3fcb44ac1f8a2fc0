// method5/m5_format.h - the stream of method 5: constants
//
// A stream is the block's first two bytes, raw, then the output of the binary range coder (encoder:
// m5_steps.h, decoder: m5_coder.h) for the binary decisions of each token.  The block's length ends
// it.
//
//     literal   match_flag 0   8 bits, from the top, each in the context of the 12 bits before it
//     match     match_flag 1   length   distance
//     length    with n + 1 the bits of length_value = length - min_match + 2:
//               n - 1 ones and a zero (len_prefix), then the n bits below the leading one
//               (len_bits)
//     distance  the slot of distance - 1, six bits (dist_slot, by the length), then its extra bits:
//               in slots 4 to 22 all modelled (dist_mid), in higher slots the top eight (dist_top),
//               the rest direct
//
// The length is an Elias gamma code (Elias 1975) whose bits are all modelled.
//
// Encoder and decoder both include this file; neither repeats a number of it.
#pragma once

#include "coding/min_match.h"
#include "coding/range_coder.h"
#include "coding/value_slot.h"

namespace quarnex {

/// Bytes at the block's start that are sent raw.
inline constexpr u32 m5_raw_bytes = 2;

/// Returns the context of a token at `place`: the two bytes before it.
inline u32 m5_history_at(const u8* place)
{
    return u32{place[-2]} << 8 | place[-1];
}
/// The context of a token's flag is the last byte.
inline constexpr u32 m5_flag_contexts = 1U << 8;
constexpr u32 m5_flag_context(u32 history)
{
    return history % m5_flag_contexts;
}
/// The context of a literal's bit is the twelve bits before it, the lowest of `bits`.
inline constexpr u32 m5_literal_contexts = 1U << 12;
constexpr u32 m5_literal_context(u32 bits)
{
    return bits % m5_literal_contexts;
}
inline constexpr u32 m5_nibble_bits = 4;

/// The length value of the minimum match length.
inline constexpr u32 m5_min_length_value = 2;
/// A length value of 33 bits can overflow to 1.  It then stands for a literal instead of a match.
/// Encoders never write it.
inline constexpr u32 m5_overflowed_length = 1;
/// Maximum number of bits below the leading one (31 in an intact stream).
inline constexpr u32 m5_max_length_bits = 32;

/// The slot of a distance has separate models for the lengths min_match, + 1, + 2, and all longer.
inline constexpr u32 m5_length_classes = 4;
constexpr u32 m5_length_class(u32 length_value)
{
    const u32 value = length_value - m5_min_length_value;
    return value < m5_length_classes ? value : m5_length_classes - 1;
}

inline constexpr u32 m5_slot_bits = 6;
static_assert(1U << m5_slot_bits == value_slots);
/// The first slot that has direct bits.
inline constexpr u32 m5_first_high_slot = 23;
/// Extra bits of the high slots that are modelled.
inline constexpr u32 m5_top_bits = 8;
/// The direct bits of a distance are coded in one step.
static_assert(slot_extra_bits(value_slots - 1) - m5_top_bits <= max_direct_bits);

} // namespace quarnex
