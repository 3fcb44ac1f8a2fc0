// method5/m5_format.h - the stream of method 5: raw head, decisions, their models
//
// A stream is the block's first two bytes, then what the binary range coder (m5_coder.h) makes of
// the decisions of each token.  The block's length ends it.
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
// Nothing here has state.  Encoder and decoder both include this file, and neither repeats a
// number of it.
#pragma once

#include "coding/min_match.h"
#include "coding/value_slot.h"

namespace quarnex {

/// Bytes at the block's start that are sent raw.
inline constexpr u32 m5_raw_bytes = 2;

/// The context of a token: the last bytes in front of `place`, of which there are two or more.
inline u32 m5_history_at(const u8* place)
{
    return u32{place[-2]} << 8 | place[-1];
}
/// The model of a token's flag goes by the last byte.
inline constexpr u32 m5_flag_contexts = 1U << 8;
constexpr u32 m5_flag_context(u32 history)
{
    return history % m5_flag_contexts;
}
/// The model of a literal's bit goes by the twelve bits in front of it, which end `bits`.
inline constexpr u32 m5_literal_contexts = 1U << 12;
constexpr u32 m5_literal_context(u32 bits)
{
    return bits % m5_literal_contexts;
}
inline constexpr u32 m5_nibble_bits = 4;

/// The coded number of the shortest length.
inline constexpr u32 m5_least_length_value = 2;
/// What 32 bits can make of a number that is longer: not a match, but a literal at its place.
/// Encoders never write it.
inline constexpr u32 m5_overflown_length = 1;
/// The most bits below the leading one that a length's prefix can announce.  (31 if it is intact.)
inline constexpr u32 m5_max_length_bits = 32;

/// The models of a distance's slot by the length above the shortest.
inline constexpr u32 m5_length_classes = 4;
constexpr u32 m5_length_class(u32 length_value)
{
    const u32 value = length_value - m5_least_length_value;
    return value < m5_length_classes ? value : m5_length_classes - 1;
}

inline constexpr u32 m5_slot_bits = 6;
static_assert(1U << m5_slot_bits == value_slots);
/// The first slot that has direct bits.
inline constexpr u32 m5_first_high_slot = 23;
/// Extra bits of the high slots that are modelled.
inline constexpr u32 m5_top_bits = 8;
/// The most direct bits that a distance has.
inline constexpr u32 m5_max_direct_bits = slot_extra_bits(value_slots - 1) - m5_top_bits;
static_assert(m5_max_direct_bits == 22);

} // namespace quarnex
