// What m1_decoder reports as the exact end of a stream.
#include "method1/m1_codec.h"

#include "plain/m1_plain.h"
#include "support/exact_ends.h"
#include "support/token_block.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::encode;
using test::joined;
using test::parameters_of;

const test::codec_entries decoders{&m1_decoder, &m1_portable_decoder};
const codec_parameters low = parameters_of(1, 0);

bool is_exact(const bytes& payload, usize length, const codec_parameters& parameters = low)
{
    return test::ends_exactly(decoders, payload, length, parameters);
}

TEST(m1_exact_end, accepts_the_stream_of_one_byte)
{
    EXPECT_TRUE(is_exact({'A', 0, 0, 0, 0x80, 0xEB, 0}, 1));
    EXPECT_FALSE(is_exact({'A'}, 1));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80}, 1));
    EXPECT_FALSE(is_exact({}, 1));
    EXPECT_FALSE(is_exact({}, 0));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0xEB, 0}, 0));
}

TEST(m1_exact_end, requires_the_end_token_that_encoders_write)
{
    // The same distance of 0 with other lengths and in longer integers.
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0x03, 0}, 1));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0xE7, 0}, 1));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0xFF, 0x85, 0x55, 0}, 1));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0xEB, 0x80, 0}, 1));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0xEB, 0xF0, 0, 0, 0, 0}, 1));
}

TEST(m1_exact_end, requires_unused_flags_of_0)
{
    for (u32 bit = 0; bit < 31; ++bit) {
        bytes stream{'A', 0, 0, 0, 0x80, 0xEB, 0};
        stream[1 + bit / 8] = static_cast<u8>(stream[1 + bit / 8] | 1U << bit % 8);
        EXPECT_FALSE(is_exact(stream, 1)) << bit;
    }
}

/// Returns the stream of a block of `count` literals and a run of 60 bytes: count + 1 flags before
/// that of the end token.
bytes literals_and_run(u8 count)
{
    bytes block;
    for (u8 i = 0; i <= count; ++i) block.push_back(i);
    block.insert(block.end(), 60, count);
    return block;
}

TEST(m1_exact_end, accepts_an_end_token_with_any_flag)
{
    for (u8 count = 20; count < 100; ++count) {
        const bytes block = literals_and_run(count);
        EXPECT_TRUE(test::expect_exact_end_of_block(decoders, block, low)) << int{count};
    }
}

TEST(m1_exact_end, requires_a_zero_control_word_after_the_32nd_flag)
{
    const bytes block = literals_and_run(30);
    const bytes stream = encode(block, low);
    ASSERT_EQ(bytes(stream.end() - 6, stream.end()), (bytes{0xEB, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(is_exact(stream, block.size()));
    for (usize cut = 1; cut <= 6; ++cut)
        EXPECT_FALSE(is_exact({stream.begin(), stream.end() - static_cast<i64>(cut)}, block.size()))
            << cut;
    for (usize i = 1; i <= 4; ++i) {
        bytes changed = stream;
        changed[changed.size() - i] = 0x80;
        EXPECT_FALSE(is_exact(changed, block.size())) << i;
    }
}

TEST(m1_exact_end, rejects_a_zero_control_word_after_other_flags)
{
    const bytes block = literals_and_run(31);
    const bytes stream = encode(block, low);
    ASSERT_EQ(bytes(stream.end() - 6, stream.end()), (bytes{0, 0, 0, 0x80, 0xEB, 0}));
    EXPECT_TRUE(is_exact(stream, block.size()));
    EXPECT_FALSE(is_exact({stream.begin(), stream.end() - 6}, block.size()));
    EXPECT_FALSE(is_exact(joined({stream, bytes(4)}), block.size()));
}

TEST(m1_exact_end, accepts_a_last_match_up_to_5_bytes_past_the_end)
{
    // A match of 7 bytes at distance 1 after the first byte, in each of the three forms, the last
    // also with a distance of five bytes.
    for (const bytes& token : {bytes{0x00, 0xC0}, bytes{0x01, 0x00, 0x60}, bytes{0x0F, 0x01},
                               bytes{0x0F, 0xF0, 1, 0, 0, 0}}) {
        const bytes stream = joined({{'A', 0, 0, 0, 0xC0}, token, {0xEB, 0x00}});
        for (usize length = 1; length <= 20; ++length)
            EXPECT_EQ(is_exact(stream, length), length >= 3 && length <= 8)
                << token.size() << " bytes, a block of " << length;
    }
    // 600 bytes, with a length integer.
    const bytes stream{'A', 0, 0, 0, 0xC0, 0xFF, 0x82, 0x15, 0x01, 0xEB, 0x00};
    for (usize length = 580; length <= 610; ++length)
        EXPECT_EQ(is_exact(stream, length), length >= 596 && length <= 601) << length;
}

TEST(m1_exact_end, rejects_items_after_the_end_of_the_block)
{
    // A block of two bytes: flags 011 (the end after a match), 001 (after two literals).
    EXPECT_TRUE(is_exact({'A', 0, 0, 0, 0x40, 'B', 0xEB, 0}, 2));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x60, 'B', 0, 0, 0xEB, 0}, 2));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x20, 'B', 'C', 0xEB, 0}, 2));
    EXPECT_TRUE(is_exact({'A', 0, 0, 0, 0x20, 'B', 'C', 0xEB, 0}, 3));
}

TEST(m1_exact_end, rejects_an_early_end_token)
{
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x80, 0xEB, 0}, 2));
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0x40, 'B', 0xEB, 0}, 3));
    // Nor one before the true one.
    EXPECT_FALSE(is_exact({'A', 0, 0, 0, 0xA0, 0xEB, 0, 'B', 0xEB, 0}, 2));
}

TEST(m1_exact_end, accepts_last_matches_of_encoders_past_the_end)
{
    // Four bytes at the last position, six at levels 4 to 7 in the second block.
    const bytes by_3 = bytes_of("abcz\0\0\0defgggggggggggggggggggggz"sv);
    const bytes by_5 = bytes_of("abz\0\0\0\0\0\0\0\0\0defgggggggggggggggggggggz"sv);
    for (u8 level = 0; level <= 9; ++level) {
        const codec_parameters parameters = parameters_of(1, level, 16);
        EXPECT_TRUE(test::expect_exact_end_of_block(decoders, by_3, parameters)) << int{level};
        EXPECT_TRUE(test::expect_exact_end_of_block(decoders, by_5, parameters)) << int{level};
    }
}

TEST(m1_exact_end, rejects_any_change_to_the_end_token)
{
    for (const u8 count : {u8{25}, u8{30}, u8{31}}) { // the 32nd flag, a new group
        const bytes block = literals_and_run(count);
        const bytes stream = encode(block, low);
        for (usize bit = 0; bit < 16; ++bit) {
            bytes changed = stream;
            const usize end_size = count == 30 ? 6 : 2;
            const usize i = stream.size() - end_size + bit / 8;
            changed[i] = static_cast<u8>(changed[i] ^ 1U << bit % 8);
            EXPECT_FALSE(is_exact(changed, block.size())) << int{count} << ", bit " << bit;
        }
    }
}

class m1_exact_end_property : public testing::TestWithParam<u8> {};

TEST_P(m1_exact_end_property, accepts_every_stream_of_the_encoder)
{
    u32 streams = 0;
    test::for_all_edge_lengths(GetParam(), [&](const bytes& block) {
        const codec_parameters parameters = parameters_of(1, GetParam(), 12);
        streams += test::expect_exact_end_of_block(decoders, block, parameters) ? 1 : 0;
    });
    EXPECT_GT(streams, 1000U);
}

TEST_P(m1_exact_end_property, accepts_streams_of_random_tokens)
{
    const u32 min_match = GetParam() < 8 ? 4 : 3;
    for (u64 seed = 1; seed <= 40; ++seed) {
        const test::token_block made = test::random_token_block(seed, 1, min_match, 300);
        test::expect_exact_end(decoders,
                               test::m1_plain_stream(made.data(), made.tokens(), min_match),
                               made.data().size(), parameters_of(1, GetParam()));
    }
}

INSTANTIATE_TEST_SUITE_P(levels, m1_exact_end_property, testing::Range(u8{0}, u8{10}));

} // namespace
} // namespace quarnex
