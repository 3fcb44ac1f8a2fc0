#include "method1/m1_codec.h"

#include "plain/m1_plain.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::encode;
using test::parameters_of;

constexpr u8 levels[]{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr u8 hash_levels[]{0, 1, 2, 3, 4, 5, 6, 7};

TEST(m1_encoder, a_block_of_1_byte_is_stored)
{
    // Its stream would be the byte, the control word 0x80000000 and the end token: seven bytes.
    for (const u8 level : levels)
        EXPECT_EQ(encode({0x41}, parameters_of(1, level, 12)), bytes{0x41});
}

TEST(m1_encoder, an_in_len_of_2_is_always_stored)
{
    for (const u8 level : levels)
        EXPECT_EQ(encode({7, 7}, parameters_of(1, level, 12)), (bytes{7, 7}));
}

TEST(m1_encoder, data_without_any_match_come_out_as_the_raw_block)
{
    bytes block(256);
    for (usize i = 0; i < block.size(); ++i) block[i] = static_cast<u8>(i);
    for (const u8 level : levels) EXPECT_EQ(encode(block, parameters_of(1, level, 12)), block);
}

TEST(m1_encoder, a_run_of_a_single_byte_is_one_long_token_at_distance_1)
{
    // The first byte; the control word 11 then zeros; the match of 999 at distance 1: c = 995 is
    // above 62, so the first byte is 0xFF, c - 63 = 932 = 0x3A4 takes two bytes 0x83 0xA4, the
    // distance is one byte; the end token.
    const bytes expected{'z', 0x00, 0x00, 0x00, 0xC0, 0xFF, 0x83, 0xA4, 0x01, 0xEB, 0x00};
    for (const u8 level : hash_levels)
        EXPECT_EQ(encode(bytes(1000, 'z'), parameters_of(1, level, 12)), expected);
}

TEST(m1_encoder, the_default_tables_of_levels_3_and_7_serve_a_small_block)
{
    const bytes expected{'z', 0x00, 0x00, 0x00, 0xC0, 0xFF, 0x83, 0xA4, 0x01, 0xEB, 0x00};
    for (const u8 level : {u8{3}, u8{7}})
        EXPECT_EQ(encode(bytes(1000, 'z'), parameters_of(1, level)), expected);
}

/// A block whose last byte, a "z", stands like an earlier one in front of three zeros, if those
/// behind the block count.
const bytes block_with_a_match_at_its_end = bytes_of("abcz\0\0\0defgggggggggggggggggggggz"sv);

TEST(m1_encoder, a_match_in_the_last_bytes_passes_the_end_by_3_except_at_level_3)
{
    // The literals at 1 to 10, the run of "g" as a match of 20 at 11, then the "z" at 31 as a match
    // of 4 at distance 28, and the end token: ten flags 0, then 111.
    const bytes passing{'a', 0x00, 0x00, 0x38, 0x00, 'b',  'c',  'z',  0x00, 0x00, 0x00,
                        'd', 'e',  'f',  'g',  0x43, 0x01, 0x36, 0x00, 0xEB, 0x00};
    // Level 3 sends a literal: ten flags 0, then 101.
    const bytes not_passing{'a',  0x00, 0x00, 0x28, 0x00, 'b',  'c',  'z', 0x00, 0x00,
                            0x00, 'd',  'e',  'f',  'g',  0x43, 0x01, 'z', 0xEB, 0x00};
    for (const u8 level : hash_levels)
        EXPECT_EQ(encode(block_with_a_match_at_its_end, parameters_of(1, level, 16)),
                  level == 3 ? not_passing : passing)
            << "level " << int{level};
}

TEST(m1_encoder, each_level_decodes_to_its_block_where_the_last_match_passes_the_end)
{
    for (const u8 level : hash_levels) {
        const auto parameters = parameters_of(1, level, 16);
        const bytes& block = block_with_a_match_at_its_end;
        EXPECT_EQ(test::decode(encode(block, parameters), block.size(), parameters), block);
    }
}

TEST(m1_encoder, a_match_twice_replaced_behind_the_end_is_sent_with_6_bytes)
{
    // The literals at 1 to 3, eight zeros at 4 as a match at distance 1, ten literals and the run
    // of "g" as before.  The "z" at 36 matches four bytes from 2; the look-ahead behind the block
    // makes six of them, at distance 34: c = 2 in a short token, 33 << 1 | 2 << 14 = 0x8042.
    const bytes block = bytes_of("abz\0\0\0\0\0\0\0\0\0defgggggggggggggggggggggz"sv);
    const auto parameters = parameters_of(1, 4, 16);
    const bytes stream = encode(block, parameters);
    ASSERT_LT(stream.size(), block.size());
    EXPECT_EQ(bytes(stream.end() - 4, stream.end()), (bytes{0x42, 0x80, 0xEB, 0x00}));
    EXPECT_EQ(test::decode(stream, block.size(), parameters), block);
}

TEST(m1_encoder, a_minimum_match_is_a_short_token)
{
    // 3 literals, the match of 4 at distance 4, 20 bytes as one match, the end: flags 0001 then,
    // for the run of "z", a literal and a match, then the end: 000101 1.
    const bytes block = bytes_of("abcdabcd" + std::string(21, 'z'));
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
        bytes block = bytes_of("0123456789");
        block.insert(block.end(), run, 'x');
        const bytes stream =
            test::m1_plain_stream(block, test::plain_search(block, test::m1_rules, 0, 12, 1), 4);
        const bytes expected = stream.size() < block.size() ? stream : block;
        EXPECT_EQ(encode(block, parameters_of(1, 0)), expected) << run;
    }
}

// Levels 8 and 9, whose shortest match has 3 bytes

TEST(m1_encoder, at_level_8_a_match_length_is_at_most_255)
{
    // Of 500 bytes 255 and 244: c = 252 = 63 + 0xBD and 241 = 63 + 0xB2, both integers of two
    // bytes.
    EXPECT_EQ(encode(bytes(500, 'z'), parameters_of(1, 8)),
              (bytes{'z', 0, 0, 0, 0xE0, 0xFF, 0x80, 0xBD, 0x01, 0xFF, 0x80, 0xB2, 0x01, 0xEB, 0}));
}

TEST(m1_encoder, at_level_9_a_match_length_has_no_limit_but_the_room_of_the_parse)
{
    // Position 1 is the first to be entered.  498: c = 495 = 63 + 0x1B0.
    EXPECT_EQ(encode(bytes(500, 'z'), parameters_of(1, 9)),
              (bytes{'z', 0, 0, 0, 0x60, 'z', 0xFF, 0x81, 0xB0, 0x01, 0xEB, 0}));
    // The step goes 2048 bytes behind the first window: 2559: c = 2556 = 63 + 0x9BD.
    EXPECT_EQ(encode(bytes(2561, 'z'), parameters_of(1, 9)),
              (bytes{'z', 0, 0, 0, 0x60, 'z', 0xFF, 0x89, 0xBD, 0x01, 0xEB, 0}));
}

TEST(m1_encoder, at_levels_8_and_9_a_minimum_match_is_a_short_token)
{
    // "abc" again, at distance 4: 3 << 1; then as before a run of "z", 20 at distance 1: c = 17.
    const bytes block = bytes_of("-abc+abc" + std::string(21, 'z'));
    for (const u8 level : {u8{8}, u8{9}})
        EXPECT_EQ(encode(block, parameters_of(1, level)),
                  (bytes{'-', 0, 0, 0, 0x0B, 'a', 'b', 'c', '+', 0x06, 0, 'z', 0x47, 1, 0xEB, 0}));
}

} // namespace
} // namespace quarnex
