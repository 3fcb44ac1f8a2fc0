// plain/m2_plain.h - method 2 told in the simplest code that does it
//
// The judge of the real encoders and of the real decoder: one bit at a time, no look-up tables, no
// shared code.
//
// A stream doesn't tell its dialect, the level does: up to level 7 a match has 4 bytes or more and
// there are runs of a byte; from level 8 on a match may have 3 bytes, and there are no such runs.
#pragma once

#include "plain/plain_search.h"

#include <array>

namespace quarnex::test {

inline constexpr u32 m2_plain_classes = 32;

/// The bits behind a distance class: 4 to 15 twice each, 16 to 22, and 30.
constexpr u32 m2_plain_extra_bits(u32 dist_class)
{
    if (dist_class < 24) return 4 + dist_class / 2;
    return dist_class < 31 ? dist_class - 8 : 30;
}

/// The first distance of a class.  The classes follow each other, but behind 4096 they start at
/// multiples of 2048: for that class 14 reaches into class 15.
constexpr u32 m2_plain_first_dist(u32 dist_class)
{
    u32 start = 0;
    for (u32 i = 0; i < dist_class; ++i) {
        start += 1U << m2_plain_extra_bits(i);
        if (start >= 4096) start = start / 2048 * 2048;
    }
    return start + 1;
}

inline constexpr auto m2_plain_first_dists = [] {
    std::array<u32, m2_plain_classes> first{};
    for (u32 i = 0; i < m2_plain_classes; ++i) first[i] = m2_plain_first_dist(i);
    return first;
}();

/// The class that an encoder takes: the last one that starts at or before the distance.
constexpr u32 m2_plain_class_of(u32 dist)
{
    u32 dist_class = m2_plain_classes - 1;
    while (m2_plain_first_dists[dist_class] > dist) --dist_class;
    return dist_class;
}

/// Writes a stream token by token, also tokens that no encoder writes.
struct m2_plain_writer {
    u32 level;
    bytes out;
    u32 free_bits = 0; // at the bottom of the last byte

    m2_plain_writer(u8 first_byte, u32 level_of_dialect) : level(level_of_dialect), out{first_byte}
    {
    }

    /// The lowest bits of a value, the highest of them first.
    m2_plain_writer& put(u64 value, u32 count);
    /// Of 1 or more.
    m2_plain_writer& gamma(u64 value);

    m2_plain_writer& literal(u8 byte);
    m2_plain_writer& match(u32 len, u32 dist);
    /// A match whose distance is told by any class, with any value of its extra bits.
    m2_plain_writer& match_in_class(u32 len, u32 dist_class, u32 extra);
    /// Of any number of bytes; levels 0 to 7 only.
    m2_plain_writer& byte_run(u8 byte, u32 count);
    /// Of 12 bytes or more.
    m2_plain_writer& literal_run(const bytes& raw);
    /// The end token, behind which the last byte is filled up with zeros.
    m2_plain_writer& end();
};

/// Where a stream is to have no literal runs.
inline constexpr usize m2_plain_no_runs = ~usize{0};
/// Where levels 8 and 9 start to write them: later than they could.
inline constexpr usize m2_plain_shortest_run = 13;

/// The stream of a list of tokens that starts behind the first byte of `block`; literals in a row,
/// from `shortest_run` on, go in a run.
bytes m2_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 level,
                      usize shortest_run = m2_plain_no_runs);

/// What an encoder gives for a block: the stream, or the block itself.  Levels 8 and 9 read neither
/// `hash_bits` nor `chain_bits`.
bytes m2_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits = 1);

/// Decodes a stream up to its end token, to `out_len` bytes, or to the first token that is damaged
/// or cut off, which doesn't count.
bytes m2_plain_decode(const bytes& stream, usize out_len, u32 level);

} // namespace quarnex::test
