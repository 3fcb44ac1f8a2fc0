// method1/m1_format.h - the byte-aligned stream of method 1: control words, tokens, integers
//
// A stream is the block's first byte, then groups of a control word (little-endian u32) and the
// items of its 32 flags, from the top bit down: 0 is a literal, one raw byte; 1 is a match token.
// The last item is the end token.  Unused flags are 0.  An end token with the 32nd flag is followed
// by a control word of 0.
//
// With v the little-endian number at the token, and length = c + min_match:
//
//     short   2 bytes   | c: 2 | distance - 1: 13 | 0 |
//     medium  3 bytes   | c: 3 | distance - 1: 19 | 01 |
//     long    1 + ...   | k: 6 | 11 |  [integer: c - 63, if k is 63]  integer: distance
//
// A long token with distance 0 ends the stream.  An integer has 1 to 5 bytes; the number of
// leading ones of the first is the number of bytes that follow it:
//
//     0xxxxxxx   10xxxxxx b   110xxxxx b b   1110xxxx b b b   11110000 b b b b
//
// The x are the top bits of the value, the bytes b its lower part in little-endian order.
//
// The format's only definition in code: encoder and decoder include this file and repeat none of
// its numbers.
#pragma once

#include "common/bytes.h"

#include <algorithm>
#include <bit>
#include <cassert>

namespace quarnex {

inline constexpr u32 m1_flags_per_word = 32;
inline constexpr u32 m1_control_bytes = 4;

inline constexpr u32 m1_short_bytes = 2;
inline constexpr u32 m1_short_dist_bits = 13;
inline constexpr u32 m1_short_len_bits = 2;
inline constexpr u32 m1_medium_bytes = 3;
inline constexpr u32 m1_medium_dist_bits = 19;
inline constexpr u32 m1_medium_len_bits = 3;
/// The k of a long token whose length goes on in an integer.
inline constexpr u32 m1_long_escape = 63;

// The two lowest bits of a token; bit 0 of a short one is 0.
inline constexpr u32 m1_medium_tag = 1;
inline constexpr u32 m1_long_tag = 3;

// Encoder and decoder compute sizes and shifts from the medium flag instead of branching on it.
static_assert(m1_medium_bytes == m1_short_bytes + 1);
static_assert(1 + m1_short_dist_bits + m1_short_len_bits == 8 * m1_short_bytes);
static_assert(2 + m1_medium_dist_bits + m1_medium_len_bits == 8 * m1_medium_bytes);

inline constexpr u32 m1_integer_max_bytes = 5;
/// Size of the longest token: first byte, length, distance.
inline constexpr u32 m1_token_max_bytes = 1 + 2 * m1_integer_max_bytes;
/// The end token as encoders write it: a long token with distance 0.
inline constexpr u32 m1_end_token = 0x00EB;
inline constexpr u32 m1_end_bytes = 2;

/// Returns the bytes after the first of `value` as an integer in the shortest form.
constexpr u32 m1_integer_tail(u32 value)
{
    const auto width = static_cast<u32>(std::bit_width(value));
    return width <= 7 ? 0 : std::min((width - 1) / 7, m1_integer_max_bytes - 1);
}

/// Writes `value` as an integer in the shortest form and returns the end of it.  Always stores 8
/// bytes.
inline u8* m1_put_integer(u8* dest, u32 value)
{
    const u32 more = m1_integer_tail(value);
    const u64 tail = value & ((u64{1} << (8 * more)) - 1);
    const u64 marks = 0xF00 >> more & 0xFF; // `more` leading ones
    const u64 top = (u64{value} >> (8 * more)) | marks;
    store_u64(dest, top | tail << 8);
    return dest + 1 + more;
}

// Tokens, given as the little-endian word of the eight bytes from their first on.

constexpr bool m1_is_long(u64 token)
{
    return (token & m1_long_tag) == m1_long_tag;
}

/// Returns whether a long token has a length integer or a distance of five bytes.
constexpr bool m1_is_escaped(u64 token)
{
    constexpr u64 length = m1_long_escape << 2, distance = 0xF000;
    return (token & length) == length || (token & distance) == distance;
}

/// The distance of a long token that is not escaped, and the number of its bytes after the first.
struct m1_long_dist {
    usize value;
    usize more;
};

constexpr m1_long_dist m1_get_long_dist(u64 token)
{
    // The leading ones of the distance's first byte; at most three, as the token is not escaped.
    assert(!m1_is_escaped(token));
    const auto more = static_cast<u32>(__builtin_clz(~static_cast<u32>(token) << 16));
    const usize tail = static_cast<usize>(token >> 16) & ((usize{1} << 8 * more) - 1);
    const usize top = (static_cast<usize>(token >> 8) & (0x7FU >> more)) << 8 * more;
    return {top | tail, more};
}

/// An integer as read: its value and its size in the stream.
struct m1_integer {
    u32 value;
    u32 bytes;
};

/// Reads an integer.  Loads 8 bytes.
[[gnu::always_inline]] inline m1_integer m1_get_integer(const u8* in)
{
    const u64 word = load_u64(in);
    const auto first = static_cast<u8>(word);
    const u32 more = std::min(static_cast<u32>(std::countl_one(first)), 4U);
    const u64 tail = word >> 8 & ((u64{1} << (8 * more)) - 1);
    const u64 top = u64{first & (0x7FU >> more)} << (8 * more);
    return {static_cast<u32>(top | tail), 1 + more};
}

} // namespace quarnex
