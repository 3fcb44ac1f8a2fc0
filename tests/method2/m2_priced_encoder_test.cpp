#include "method2/m2_format.h"

#include "plain/m2_plain.h"
#include "support/codec_runs.h"
#include "support/shapes.h"

#include <gtest/gtest.h>

// Levels 8 and 9; the hash levels are in m2_encoder_test.cpp.
namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::encode;
using test::joined;
using test::m2_plain_writer;
using test::parameters_of;

constexpr u8 priced_levels[]{8, 9};

/// Returns `count` different bytes in descending order.
bytes different(u32 count)
{
    bytes all(count);
    for (u32 i = 0; i < count; ++i) all[i] = static_cast<u8>(250 - i);
    return all;
}

/// Returns the tokens of a run of 42 "z" at a level.
m2_plain_writer stream_of_run(u8 level)
{
    // At level 9 position 1 is the first in the trie.
    m2_plain_writer stream('z', level);
    if (level == 8) stream.match(41, 1);
    if (level == 9) stream.literal('z').match(40, 1);
    return stream;
}

TEST(m2_priced_encoder, writes_12_literals_at_the_end_one_by_one)
{
    for (const u8 level : priced_levels) {
        m2_plain_writer expected = stream_of_run(level);
        for (const u8 byte : different(12)) expected.literal(byte);
        EXPECT_EQ(encode(joined({bytes(42, 'z'), different(12)}), parameters_of(2, level)),
                  expected.end().out);
    }
}

TEST(m2_priced_encoder, writes_13_literals_at_the_end_as_a_run_of_gamma_2)
{
    for (const u8 level : priced_levels) {
        m2_plain_writer expected = stream_of_run(level);
        expected.put(0b0001110, 7).put(0b010, 3);
        for (const u8 byte : different(13)) expected.put(byte, 8);
        EXPECT_EQ(encode(joined({bytes(42, 'z'), different(13)}), parameters_of(2, level)),
                  expected.end().out);
    }
}

TEST(m2_priced_encoder, writes_literals_before_a_match_as_a_run_from_13_on)
{
    for (const u8 level : priced_levels) {
        for (const u32 count : {12U, 13U, 14U, 40U, 200U}) {
            // The last of them is repeated 60 times, then the first eleven occur again.
            const bytes literals = different(count);
            const bytes again(literals.begin(), literals.begin() + 11);
            m2_plain_writer expected('-', level);
            if (count == 12)
                for (const u8 byte : literals) expected.literal(byte);
            else
                expected.literal_run(literals);
            expected.match(60, 1).match(11, count + 60);
            EXPECT_EQ(encode(joined({{'-'}, literals, bytes(60, literals.back()), again}),
                             parameters_of(2, level)),
                      expected.end().out)
                << count;
        }
    }
}

TEST(m2_priced_encoder, carries_pending_literals_over_from_window_to_window)
{
    // One run of 700 literals; the first window has 512 positions.
    const bytes noise = test::find_shape("random").make(700, 1);
    for (const u8 level : priced_levels) {
        m2_plain_writer expected('-', level);
        expected.literal_run(noise).match(255, 1);
        EXPECT_EQ(encode(joined({{'-'}, noise, bytes(255, noise.back())}), parameters_of(2, level)),
                  expected.end().out);
    }
}

TEST(m2_priced_encoder, limits_matches_to_255_bytes_at_level_8_and_not_at_level_9)
{
    EXPECT_EQ(encode(bytes(500, 'z'), parameters_of(2, 8)),
              m2_plain_writer('z', 8).match(255, 1).match(244, 1).end().out);
    EXPECT_EQ(encode(bytes(500, 'z'), parameters_of(2, 9)),
              m2_plain_writer('z', 9).literal('z').match(498, 1).end().out);
    // Up to the room of the first window.
    EXPECT_EQ(encode(bytes(2561, 'z'), parameters_of(2, 9)),
              m2_plain_writer('z', 9).literal('z').match(2559, 1).end().out);
}

/// Returns the bits of a stream up to its last 1, the end of the end token.
std::string bits_of(const bytes& stream)
{
    std::string bits;
    for (const u8 byte : stream)
        for (u32 place = 8; place-- != 0;) bits += (byte >> place & 1) != 0 ? '1' : '0';
    return bits.substr(0, bits.rfind('1') + 1);
}

/// Returns whether a stream ends with these tokens.
bool ends_with(const bytes& stream, const m2_plain_writer& tokens)
{
    const std::string expected = bits_of({tokens.out.begin() + 1, tokens.out.end()});
    const auto last = static_cast<std::ptrdiff_t>(std::min<usize>(100, stream.size()));
    return bits_of({stream.end() - last, stream.end()}).ends_with(expected);
}

TEST(m2_priced_encoder, takes_matches_of_3_bytes_below_class_28_only)
{
    // Three literals have 27 bits; so has the match below class 28, and 28 from there on.
    const u32 limit = test::m2_plain_first_dist(28);
    for (const u8 level : priced_levels) {
        for (const u32 dist : {limit - 1, limit}) {
            const bytes stream =
                encode(joined({bytes_of("-abc"), bytes(dist - 3), bytes_of("abcX")}),
                       parameters_of(2, level));
            m2_plain_writer taken('-', level);
            taken.match(3, dist).literal('X').end();
            m2_plain_writer not_taken('-', level);
            for (const u8 byte : bytes_of("abcX")) not_taken.literal(byte);
            not_taken.end();
            EXPECT_EQ(ends_with(stream, taken), dist < limit) << int{level};
            EXPECT_EQ(ends_with(stream, not_taken), dist == limit) << int{level};
        }
    }
}

TEST(m2_priced_encoder, takes_a_match_up_to_the_longest_distance)
{
    for (const u8 level : priced_levels) {
        for (const u32 far : {m2_max_dist, m2_max_dist + 1}) {
            const bytes block = joined({bytes_of("-abcdef"), bytes(far - 6), bytes_of("abcdefG")});
            const bytes stream = encode(block, parameters_of(2, level));
            m2_plain_writer taken('-', level);
            taken.match(6, m2_max_dist).literal('G').end();
            m2_plain_writer not_taken('-', level);
            for (const u8 byte : bytes_of("abcdefG")) not_taken.literal(byte);
            not_taken.end();
            EXPECT_EQ(ends_with(stream, taken), far == m2_max_dist) << int{level};
            EXPECT_EQ(ends_with(stream, not_taken), far != m2_max_dist) << int{level};
            EXPECT_TRUE(test::decode(stream, block.size(), parameters_of(2, level)) == block);
        }
    }
}

TEST(m2_priced_encoder, drops_matches_without_a_distance_class_at_level_8)
{
    const bytes block =
        joined({bytes_of("-abcdef"), bytes(m2_max_dist + 100000), bytes_of("abcdef")});
    const bytes stream = encode(block, parameters_of(2, 8));
    EXPECT_TRUE(test::decode(stream, block.size(), parameters_of(2, 8)) == block);
}

} // namespace
} // namespace quarnex
