#include "method1/m1_codec.h"

#include "plain/m1_plain.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::encode;
using test::parameters_of;

bytes text(const std::string& characters)
{
    return {characters.begin(), characters.end()};
}

TEST(m1_encoder, a_block_of_1_byte_is_stored)
{
    // Its stream would be the byte, the control word 0x80000000 and the end token: seven bytes.
    for (u8 level = 0; level <= 2; ++level) {
        EXPECT_EQ(encode({0x41}, parameters_of(1, level)), bytes{0x41});
    }
}

TEST(m1_encoder, an_in_len_of_2_is_always_stored)
{
    for (u8 level = 0; level <= 2; ++level) {
        EXPECT_EQ(encode({7, 7}, parameters_of(1, level)), (bytes{7, 7}));
    }
}

TEST(m1_encoder, data_without_any_match_come_out_as_the_raw_block)
{
    bytes block(256);
    for (usize i = 0; i < block.size(); ++i) block[i] = static_cast<u8>(i);
    for (u8 level = 0; level <= 2; ++level)
        EXPECT_EQ(encode(block, parameters_of(1, level)), block);
}

TEST(m1_encoder, a_block_of_zeros_is_one_long_token_at_distance_1)
{
    // The first byte; the control word 11 then zeros; the match of 999 at distance 1: c = 995 is
    // above 62, so the first byte is 0xFF, c - 63 = 932 = 0x3A4 takes two bytes 0x83 0xA4, the
    // distance is one byte; the end token.
    const bytes expected{0x00, 0x00, 0x00, 0x00, 0xC0, 0xFF, 0x83, 0xA4, 0x01, 0xEB, 0x00};
    for (u8 level = 0; level <= 2; ++level) {
        EXPECT_EQ(encode(bytes(1000), parameters_of(1, level)), expected);
    }
}

TEST(m1_encoder, a_minimum_match_is_a_short_token)
{
    // 3 literals, the match of 4 at distance 4, 20 bytes as one match, the end: flags 0001 then,
    // for the run of "z", a literal and a match, then the end: 000101 1.
    const bytes block = text("abcdabcd" + std::string(21, 'z'));
    // short token: distance - 1 = 3, c = 0: 3 << 1 = 0x0006.  The run: c = 20 - 4 = 16: a long
    // token 16 * 4 + 3 = 0x43, distance 1.
    const bytes expected{'a',  0x00, 0x00, 0x00, 0x16, 'b',  'c', 'd',
                         0x06, 0x00, 'z',  0x43, 0x01, 0xEB, 0x00};
    EXPECT_EQ(encode(block, parameters_of(1, 0)), expected);
}

TEST(m1_encoder, a_short_token_reaches_length_7_and_distance_8192)
{
    // A needle of 7 bytes that comes again 8192 bytes on, between different surroundings.
    bytes block = test::find_shape("random").make(9000, 5);
    std::copy_n(block.begin() + 100, 7, block.begin() + 8292);
    block[8299] = static_cast<u8>(block[107] ^ 1);
    bytes expected =
        test::m1_plain_stream(block, test::plain_search(block, test::m1_rules, 0, 20, 1), 4);
    // (8192 - 1) << 1 | 3 << 14 = 0xFFFE
    const bytes token{0xFE, 0xFF};
    EXPECT_NE(std::search(expected.begin(), expected.end(), token.begin(), token.end()),
              expected.end());
    EXPECT_EQ(encode(block, parameters_of(1, 0, 20)), block); // 8 bytes saved don't pay the flags
    block.insert(block.end(), 2000, 0);
    expected = test::m1_plain_stream(block, test::plain_search(block, test::m1_rules, 0, 20, 1), 4);
    EXPECT_EQ(encode(block, parameters_of(1, 0, 20)), expected);
}

TEST(m1_encoder, an_end_token_that_takes_the_32nd_flag_is_followed_by_a_zero_control_word)
{
    // 30 literals and a match make 31 flags; the end token takes the 32nd.
    bytes block;
    for (u8 i = 0; i < 31; ++i) block.push_back(i);
    block.insert(block.end(), 60, 30); // the run goes on byte 30
    const bytes stream = encode(block, parameters_of(1, 0));
    ASSERT_GT(stream.size(), 12U);
    // Flags: 30 zeros, the match, the end: the word 0x00000003.
    EXPECT_EQ(bytes(stream.begin() + 1, stream.begin() + 5), (bytes{0x03, 0x00, 0x00, 0x00}));
    EXPECT_EQ(bytes(stream.end() - 6, stream.end()), (bytes{0xEB, 0x00, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(stream.size(), 1U + 4 + 30 + 2 + 2 + 4); // 60 = 4 + 56: first byte and distance
}

TEST(m1_encoder, a_stream_as_long_as_the_block_is_stored)
{
    // 1 + 4 + literals + tokens + 2: shrink a block byte by byte until its stream would not be
    // shorter.
    for (usize run = 1; run < 40; ++run) {
        bytes block = text("0123456789");
        block.insert(block.end(), run, 'x');
        const bytes stream =
            test::m1_plain_stream(block, test::plain_search(block, test::m1_rules, 0, 12, 1), 4);
        const bytes expected = stream.size() < block.size() ? stream : block;
        EXPECT_EQ(encode(block, parameters_of(1, 0)), expected) << run;
    }
}

class m1_encoder_property : public testing::TestWithParam<u8> {};

TEST_P(m1_encoder_property, writes_what_the_plain_encoder_writes_at_all_sizes_to_300)
{
    for (const auto& shape : test::all_shapes()) {
        for (usize size = 1; size <= 300; ++size) {
            const bytes block = shape.make(size, size * 7 + GetParam());
            EXPECT_EQ(encode(block, parameters_of(1, GetParam(), 10)),
                      test::m1_plain_encode(block, GetParam(), 10))
                << shape.name << " of " << size << " bytes";
        }
    }
}

TEST_P(m1_encoder_property, writes_what_the_plain_encoder_writes_for_large_blocks)
{
    for (const auto& shape : test::all_shapes()) {
        for (const usize size : {4095U, 65536U, 300001U}) {
            for (const i32 hash_bits : {12, 18}) {
                const bytes block = shape.make(size, size + 3);
                EXPECT_TRUE(encode(block, parameters_of(1, GetParam(), hash_bits)) ==
                            test::m1_plain_encode(block, GetParam(), static_cast<u32>(hash_bits)))
                    << shape.name << " of " << size << " bytes";
            }
        }
    }
}

TEST_P(m1_encoder_property, finds_matches_beyond_the_reach_of_medium_tokens)
{
    // 600000 bytes without a repetition nearer than that, then the same again.
    bytes block = test::find_shape("random").make(600000, 9);
    block.insert(block.end(), block.begin(), block.begin() + 500);
    block.insert(block.end(), 100000, 1); // so that it shrinks
    const bytes payload = encode(block, parameters_of(1, GetParam(), 22));
    EXPECT_LT(payload.size(), block.size());
    EXPECT_TRUE(payload == test::m1_plain_encode(block, GetParam(), 22));
}

INSTANTIATE_TEST_SUITE_P(levels, m1_encoder_property, testing::Values(u8{0}, u8{1}, u8{2}));

TEST(m1_encoder, a_level_that_is_not_built_fails)
{
    bytes block(100);
    block_job job;
    job.parameters = parameters_of(1, 3);
    job.in_buf = block.data();
    job.in_len = 100;
    EXPECT_EQ(m1_encoder.run(job, nullptr), -1);
}

} // namespace
} // namespace quarnex
