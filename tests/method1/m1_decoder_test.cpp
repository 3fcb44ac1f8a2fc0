#include "method1/m1_codec.h"

#include "plain/m1_plain.h"
#include "support/codec_runs.h"
#include "support/token_block.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::parameters_of;
using test::plain_token;

const codec_parameters low = parameters_of(1, 0);
const codec_parameters high = parameters_of(1, 8);

/// Decodes a payload with the decoder for this processor and the portable one, which must agree.
bytes decode(const bytes& payload, usize length, const codec_parameters& parameters)
{
    const bytes portable = test::decode_with(m1_portable_decoder, payload, length, parameters);
    EXPECT_EQ(test::decode(payload, length, parameters), portable);
    return portable;
}

TEST(m1_decoder, decodes_the_7_byte_stream_of_a_1_byte_block)
{
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0x80, 0xEB, 0x00}, 1, low), bytes_of("A"));
}

TEST(m1_decoder, a_control_word_of_0_governs_32_literals)
{
    bytes stream{'A', 0x00, 0x00, 0x00, 0x00};
    bytes expected{'A'};
    for (u8 i = 0; i < 32; ++i) {
        stream.push_back(i);
        expected.push_back(i);
    }
    const bytes end{0x00, 0x00, 0x00, 0x80, 0xEB, 0x00};
    stream.insert(stream.end(), end.begin(), end.end());
    EXPECT_EQ(decode(stream, 33, low), expected);
}

TEST(m1_decoder, a_match_at_distance_1_repeats_the_last_byte)
{
    // short: distance - 1 = 0, c = 3: 7 bytes
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0xC0, 0x00, 0xC0, 0xEB, 0x00}, 8, low),
              bytes_of("AAAAAAAA"));
}

TEST(m1_decoder, at_level_8_a_short_token_with_c_0_is_a_match_of_3_bytes)
{
    const bytes stream{'A', 0x00, 0x00, 0x00, 0xC0, 0x00, 0x00, 0xEB, 0x00};
    EXPECT_EQ(decode(stream, 4, high), bytes_of("AAAA"));
    EXPECT_EQ(decode(stream, 5, low), bytes_of("AAAAA"));
}

TEST(m1_decoder, clips_a_last_match_at_the_end_of_the_block)
{
    // 7 bytes at distance 1 in a block of 5, in each of the three forms.
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0xC0, 0x00, 0xC0, 0xEB, 0x00}, 5, low),
              bytes_of("AAAAA"));
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0xC0, 0x01, 0x00, 0x60, 0xEB, 0x00}, 5, low),
              bytes_of("AAAAA"));
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0xC0, 0x0F, 0x01, 0xEB, 0x00}, 5, low),
              bytes_of("AAAAA"));
}

TEST(m1_decoder, ignores_the_length_of_the_end_token)
{
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0x80, 0x03, 0x00}, 9, low), bytes_of("A"));
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0x80, 0xFF, 0x85, 0x55, 0x00}, 9, low), bytes_of("A"));
    EXPECT_EQ(decode({'A', 0x00, 0x00, 0x00, 0x80, 0xEB, 0xF7, 0, 0, 0, 0}, 9, low), bytes_of("A"));
}

TEST(m1_decoder, decodes_every_form_of_a_distance)
{
    // One match for each form of the distance integer, to the first byte of the block.
    for (const u32 dist : {1U, 127U, 128U, 16383U, 16384U, 2097151U, 2097152U}) {
        bytes block = test::find_shape("random").make(dist, dist);
        std::vector<plain_token> tokens(dist - 1, {1, 0});
        tokens.push_back({67, dist}); // c = 63: the escape, then 0
        bytes expected = block;
        for (u32 i = 0; i < 67; ++i) expected.push_back(expected[expected.size() - dist]);
        const bytes stream = test::m1_plain_stream(expected, tokens, 4);
        EXPECT_TRUE(decode(stream, expected.size(), low) == expected) << dist;
    }
}

TEST(m1_decoder, decodes_lengths_around_the_escape)
{
    for (const u32 dist : {1U, 5U, 15U, 16U, 40U}) {
        for (const u32 len : {66U, 67U, 68U, 194U, 195U, 16450U, 16451U, 70000U}) {
            bytes expected = test::find_shape("random").make(64, len);
            std::vector<plain_token> tokens(63, {1, 0});
            tokens.push_back({len, dist});
            for (u32 i = 0; i < len; ++i) expected.push_back(expected[expected.size() - dist]);
            const bytes stream = test::m1_plain_stream(expected, tokens, 4);
            EXPECT_TRUE(decode(stream, expected.size(), low) == expected) << len << " at " << dist;
        }
    }
}

TEST(m1_decoder, decodes_literals_in_rows_of_any_length)
{
    const bytes literals = test::find_shape("random").make(64, 1);
    for (u32 run = 0; run <= 40; ++run) {
        bytes expected{literals[0]};
        std::vector<plain_token> tokens;
        for (u32 n = 0; n < 20; ++n) {
            for (u32 i = 0; i < run; ++i) expected.push_back(literals[(7 * n + i) % 64]);
            tokens.insert(tokens.end(), run, {1, 0});
            expected.insert(expected.end(), 4, expected.back());
            tokens.push_back({4, 1});
        }
        const bytes stream = test::m1_plain_stream(expected, tokens, 4);
        EXPECT_EQ(decode(stream, expected.size(), low), expected) << run;
    }
}

TEST(m1_decoder, stops_at_a_distance_that_reaches_before_the_block)
{
    // After one byte, distance 2 in each form.
    EXPECT_EQ(decode({'A', 0, 0, 0, 0xC0, 0x02, 0x00, 0xEB, 0x00}, 9, low), bytes_of("A"));
    EXPECT_EQ(decode({'A', 0, 0, 0, 0xC0, 0x05, 0x00, 0x00, 0xEB, 0x00}, 9, low), bytes_of("A"));
    EXPECT_EQ(decode({'A', 0, 0, 0, 0xC0, 0x03, 0x02, 0xEB, 0x00}, 9, low), bytes_of("A"));
    EXPECT_EQ(decode({'A', 0, 0, 0, 0xC0, 0xFF, 0x05, 0x02, 0xEB, 0x00}, 9, low), bytes_of("A"));
}

TEST(m1_decoder, decodes_a_distance_of_five_bytes)
{
    EXPECT_EQ(decode({'A', 0, 0, 0, 0xC0, 0x03, 0xF0, 1, 0, 0, 0, 0xEB, 0x00}, 5, low),
              bytes_of("AAAAA"));
}

TEST(m1_decoder, decodes_the_example_of_the_format_page)
{
    const bytes stream{'a',  0x00, 0x00, 0x00, 0x16, 'b',  'c', 'd',
                       0x06, 0x00, 'z',  0x43, 0x01, 0xEB, 0x00};
    EXPECT_EQ(decode(stream, 29, low), bytes_of("abcdabcd" + std::string(21, 'z')));
}

TEST(m1_decoder, ignores_a_long_match_after_the_end_of_the_block)
{
    // A block of two bytes: a match of 7, then one of 2 GiB.
    const bytes stream{'A',  0,    0,    0,    0xE0, 0x00, 0xC0, 0xFF,
                       0xF0, 0xFF, 0xFF, 0xFF, 0x7F, 0x01, 0xEB, 0x00};
    EXPECT_EQ(decode(stream, 2, low), bytes_of("AA"));
}

TEST(m1_decoder, yields_nothing_from_an_empty_payload)
{
    EXPECT_TRUE(decode({}, 10, low).empty());
}

TEST(m1_decoder, clips_a_huge_length_at_the_end_of_the_block)
{
    const bytes stream{'A', 0, 0, 0, 0xC0, 0xFF, 0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0xEB, 0x00};
    EXPECT_EQ(decode(stream, 1000, low), bytes(1000, 'A'));
}

/// Random valid tokens.
test::token_block random_tokens(u64 seed, u32 min_match)
{
    return test::random_token_block(seed, 1, min_match);
}

TEST(m1_decoder, decodes_random_valid_streams_of_both_dialects)
{
    for (u64 seed = 1; seed <= 60; ++seed) {
        for (const codec_parameters& parameters : {low, high}) {
            const u32 min_match = parameters.level < 8 ? 4 : 3;
            const test::token_block made = random_tokens(seed, min_match);
            const bytes& block = made.data();
            const bytes stream = test::m1_plain_stream(block, made.tokens(), min_match);
            ASSERT_TRUE(test::m1_plain_decode(stream, min_match) == block);
            EXPECT_TRUE(decode(stream, block.size(), parameters) == block) << seed;
        }
    }
}

TEST(m1_decoder, yields_a_prefix_of_the_block_from_a_truncated_stream)
{
    const test::token_block made = random_tokens(4, 4);
    const bytes& block = made.data();
    const bytes stream = test::m1_plain_stream(block, made.tokens(), 4);
    for (usize size = 0; size < stream.size(); size += 1 + size / 50) {
        const bytes out = decode(bytes(stream.begin(), stream.begin() + static_cast<i64>(size)),
                                 block.size(), low);
        ASSERT_LE(out.size(), block.size());
        EXPECT_TRUE(std::equal(out.begin(), out.end(), block.begin()));
        EXPECT_TRUE(out.size() < block.size() || size + 8 >= stream.size());
    }
}

TEST(m1_decoder, keeps_to_its_buffers_in_corrupt_streams)
{
    test::random_source random(77);
    for (u64 seed = 1; seed <= 30; ++seed) {
        const test::token_block made = random_tokens(seed, 4);
        const bytes& block = made.data();
        const bytes stream = test::m1_plain_stream(block, made.tokens(), 4);
        for (int round = 0; round < 40; ++round) {
            bytes corrupt = stream;
            for (u32 flips = 1 + random.below(4); flips != 0; --flips) {
                corrupt[random.below(static_cast<u32>(corrupt.size()))] ^=
                    static_cast<u8>(1 << random.below(8));
            }
            EXPECT_LE(decode(corrupt, block.size(), round % 2 == 0 ? low : high).size(),
                      block.size());
        }
    }
}

TEST(m1_decoder, keeps_to_its_buffers_in_random_payloads)
{
    for (usize seed = 1; seed <= 400; ++seed) {
        const bytes payload = test::find_shape("random").make(1 + seed, seed);
        EXPECT_LE(decode(payload, 1 + seed % 97 * 40, seed % 2 == 0 ? low : high).size(),
                  1 + seed % 97 * 40);
    }
}

} // namespace
} // namespace quarnex
