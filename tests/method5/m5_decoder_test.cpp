#include "method5/m5_codec.h"

#include "method5/m5_streams.h"
#include "support/damaged_streams.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::decode;
using test::m5_block;
using test::m5_plain_coder;
using test::m5_plain_pair;
using test::parameters_of;

const codec_parameters low = parameters_of(5, 0);

/// The parameters of the streams whose shortest match is `min_match`.
codec_parameters parameters_with(u32 min_match)
{
    return parameters_of(5, static_cast<u8>(min_match == 4 ? 7 : 11 - min_match));
}

/// A stream behind "ab", bit by bit: each bit has a pair of its own.
class crafted_stream {
  public:
    crafted_stream() { coder_.out = {'a', 'b'}; }

    /// The lowest `count` bits of `value`, from the top.
    crafted_stream& bits(u32 value, u32 count)
    {
        for (u32 i = count; i-- > 0;) bit((value >> i & 1) != 0);
        return *this;
    }

    crafted_stream& ones(u32 count)
    {
        for (; count != 0; --count) bit(true);
        return *this;
    }

    crafted_stream& bit(bool value)
    {
        m5_plain_pair fresh;
        return bit(fresh, value);
    }

    crafted_stream& bit(m5_plain_pair& pair, bool value)
    {
        coder_.bit(pair, value);
        return *this;
    }

    crafted_stream& direct(u32 value, u32 count)
    {
        coder_.direct(value, count);
        return *this;
    }

    bytes end()
    {
        coder_.flush();
        return coder_.out;
    }

  private:
    m5_plain_coder coder_;
};

/// The start of a stream with a literal 'x', so that a damaged token has something in front.
crafted_stream behind_x()
{
    crafted_stream stream;
    stream.bits('x', 9); // the flag is 0
    return stream;
}

// Blocks without a coder

TEST(m5_decoder, a_block_of_one_or_two_bytes_is_the_raw_head_only)
{
    EXPECT_EQ(decode({'a', 'b', 0, 0xFF, 0xFF, 0xFF, 0xFF}, 1, low), bytes_of("a"));
    EXPECT_EQ(decode({'a', 'b', 0, 0xFF, 0xFF, 0xFF, 0xFF}, 2, low), bytes_of("ab"));
    EXPECT_EQ(decode({'a', 'b'}, 2, low), bytes_of("ab"));
    EXPECT_TRUE(decode({'a', 'b'}, 0, low).empty());
}

TEST(m5_decoder, a_payload_of_one_byte_or_none_gives_that)
{
    EXPECT_EQ(decode({'a'}, 10, low), bytes_of("a"));
    EXPECT_TRUE(decode({}, 10, low).empty());
}

// Streams worked by hand

TEST(m5_decoder, a_stream_of_literals_only)
{
    EXPECT_EQ(decode({'a', 'b', 0x00, 0x31, 0x98, 0xCC, 0xA6, 0x60, 0x00, 0x00, 0x00}, 6, low),
              bytes_of("abcdef"));
}

TEST(m5_decoder, does_not_look_at_the_first_byte_of_the_coder)
{
    EXPECT_EQ(decode({'a', 'b', 0x77, 0x80, 0x7F, 0xC0, 0x00, 0x00}, 6, low), bytes_of("ababab"));
}

TEST(m5_decoder, the_shortest_match_has_4_3_or_2_bytes_by_the_level)
{
    // Flag 1, prefix 0, value 0, slot 000001, then a literal: its flag has the pair of the match's
    // if the match ends in 'b' too.
    m5_plain_pair flag;
    crafted_stream crafted;
    const bytes even = crafted.bit(flag, true).bits(1, 8).bit(flag, false).bits('x', 8).end();
    for (u8 level = 0; level <= 7; ++level)
        EXPECT_EQ(decode(even, 7, parameters_of(5, level)), bytes_of("abababx")) << int{level};
    const bytes odd = crafted_stream().bits(0b1'0000'0001, 9).bits('x', 9).end();
    EXPECT_EQ(decode(odd, 6, parameters_of(5, 8)), bytes_of("ababax"));
    EXPECT_EQ(decode(even, 5, parameters_of(5, 9)), bytes_of("ababx"));
}

TEST(m5_decoder, the_example_of_the_format_page)
{
    EXPECT_EQ(decode({0x61, 0x62, 0x00, 0x31, 0x98, 0xFC, 0x21, 0x9C, 0x17, 0xC0, 0x06, 0xAD, 0x34,
                      0x52, 0x80},
                     40, low),
              bytes_of("abcdabcdabcdabcdabcdabceabceabceabceabce"));
}

TEST(m5_decoder, a_last_match_that_overruns_the_block_is_cut)
{
    // Even to a single byte, also where it is the block's first one that is copied.
    for (u32 overrun = 1; overrun < 40; ++overrun) {
        for (const u32 dist : {1U, 2U, 3U, 4U, 7U, 20U, 29U, 30U}) {
            const m5_block block = m5_block().literals_to(30).match(40, dist);
            const bytes out = decode(block.stream(), 70 - overrun, low);
            EXPECT_EQ(out, bytes(block.data().begin(), block.data().end() - overrun));
        }
    }
}

// Copies and contexts

TEST(m5_decoder, matches_at_small_distances_repeat_themselves)
{
    for (const u32 min_match : {2U, 3U, 4U}) {
        for (u32 dist = 1; dist <= 20; ++dist) {
            for (u32 len = min_match; len <= 70; ++len) {
                m5_block block;
                block.literals_to(20, dist).match(len, dist).literal('x').match(4, 3).literal('y');
                ASSERT_EQ(decode(block.stream(min_match), block.data().size(),
                                 parameters_with(min_match)),
                          block.data())
                    << len << " at " << dist;
            }
        }
    }
}

TEST(m5_decoder, the_context_behind_a_match_is_its_end_as_if_it_had_been_literals)
{
    // Also where the match repeats its own bytes, and where it is as short as its distance.
    for (const u32 dist : {1U, 2U, 3U}) {
        for (u32 len = 2; len <= 5; ++len) {
            const m5_block block =
                m5_block().literal('q').literal('r').match(len, dist).literal('s').match(2, dist);
            const bytes stream = block.stream(2);
            EXPECT_EQ(decode(stream, block.data().size(), parameters_with(2)), block.data());
        }
    }
}

TEST(m5_decoder, every_distance_slot_that_fits_a_block)
{
    std::vector<u32> distances;
    for (u32 slot = 4; slot < 44; ++slot) {
        const u32 width = slot / 2 - 1;
        const u32 base = (2 + slot % 2) << width;
        distances.insert(distances.end(), {base + 1, base + (1U << width)});
    }
    m5_block block = m5_block().literals_to(100).match(5 << 20, 97);
    for (u32 i = 0; i < 4; ++i) {
        for (const u32 dist : distances)
            block.literal(static_cast<u8>(dist >> 3)).match(4 + i, dist);
    }
    EXPECT_TRUE(decode(block.stream(), block.data().size(), low) == block.data());
}

TEST(m5_decoder, long_matches)
{
    m5_block block = m5_block().literals_to(50);
    for (u32 bits = 2; bits <= 20; ++bits) {
        for (u32 len = (1U << bits) + 1; len <= (1U << bits) + 4; ++len) block.match(len, bits);
    }
    EXPECT_TRUE(decode(block.stream(), block.data().size(), low) == block.data());
}

TEST(m5_decoder, decodes_any_valid_stream_of_all_kinds)
{
    for (u64 seed = 1; seed <= 40; ++seed) {
        for (const u32 min_match : {4U, 3U, 2U}) {
            const m5_block block = test::random_m5_block(seed, min_match);
            const bytes stream = block.stream(min_match);
            const usize size = block.data().size();
            ASSERT_TRUE(test::m5_plain_decode(stream, size, min_match) == block.data());
            EXPECT_TRUE(decode(stream, size, parameters_with(min_match)) == block.data()) << seed;
        }
    }
}

// What no encoder writes

TEST(m5_decoder, a_length_that_overflows_to_1_is_a_literal_at_its_place)
{
    // A prefix of 31 ones and a zero, and 32 bits of value, of which the last is 1; no flag.
    const bytes stream =
        behind_x().bit(true).ones(31).bit(false).bits(1, 32).bits('y', 8).bits('z', 9).end();
    EXPECT_EQ(decode(stream, 5, low), bytes_of("abxyz"));
    EXPECT_EQ(test::m5_plain_decode(stream, 5, 4), bytes_of("abxyz"));
}

TEST(m5_decoder, a_length_that_overflows_to_0_is_damage)
{
    const bytes stream =
        behind_x().bit(true).ones(31).bit(false).bits(0, 32).bits(0, 32).bits(0, 32).end();
    EXPECT_EQ(decode(stream, 100, low), bytes_of("abx"));
}

TEST(m5_decoder, a_length_that_overflows_to_2_is_the_shortest)
{
    // At distance 3, so that the match ends in 'a', whose flag is fresh.
    const bytes stream =
        behind_x().bit(true).ones(31).bit(false).bits(2, 32).bits(2, 6).bits('y', 9).end();
    EXPECT_EQ(decode(stream, 8, low), bytes_of("abxabxay"));
}

TEST(m5_decoder, the_greatest_length_is_cut_at_the_block)
{
    const bytes stream =
        behind_x().bit(true).ones(31).bit(false).bits(0xFFFFFFFF, 32).bits(0, 6).end();
    for (const u8 level : {u8{0}, u8{8}, u8{9}})
        EXPECT_EQ(decode(stream, 1000, parameters_of(5, level)),
                  bytes_of("ab" + std::string(998, 'x')));
}

TEST(m5_decoder, a_prefix_past_31_ones_is_damage)
{
    for (const u32 count : {32U, 33U, 64U, 400U}) {
        const bytes stream = behind_x().bit(true).ones(count).bit(false).bits(1, 32).end();
        EXPECT_EQ(decode(stream, 1000, low), bytes_of("abx")) << count;
    }
}

TEST(m5_decoder, a_code_that_is_not_below_the_range_at_the_start_is_damage)
{
    bytes stream{'a', 'b', 0, 0xFF, 0xFF, 0xFF, 0xFF};
    stream.resize(100);
    EXPECT_EQ(decode(stream, 50, low), bytes_of("ab"));
    stream[6] = 0xFE; // the highest that is
    EXPECT_GT(decode(stream, 50, low).size(), 2U);
}

TEST(m5_decoder, a_distance_that_wraps_to_0_is_damage)
{
    // Slot 63, all of the footer ones: distance 2^32.
    const bytes stream =
        behind_x().bit(true).bits(0, 2).ones(6).ones(8).direct(0x3FFFFF, 22).bits(0, 32).end();
    EXPECT_EQ(decode(stream, 1000, low), bytes_of("abx"));
}

TEST(m5_decoder, a_distance_before_the_block_is_damage)
{
    // Of three bytes: distance 3 is the block's start, 4 is before it.
    EXPECT_EQ(decode(behind_x().bit(true).bits(0, 2).bits(2, 6).end(), 7, low),
              bytes_of("abxabxa"));
    EXPECT_EQ(decode(behind_x().bit(true).bits(0, 2).bits(3, 6).bits(0, 32).end(), 7, low),
              bytes_of("abx"));
    // In a middle slot, 4 and its footer bit; in a high one, 23 and 63.
    for (const u32 slot : {4U, 22U, 23U, 40U, 63U}) {
        const bytes stream =
            behind_x().bit(true).bits(0, 2).bits(slot, 6).bits(0, 32).bits(0, 32).end();
        EXPECT_EQ(decode(stream, 7, low), bytes_of("abx")) << slot;
    }
}

TEST(m5_decoder, a_direct_value_beyond_its_bits_is_added_as_it_is)
{
    // "bb", then a match whose flag has the pair of the literal's flag, which has seen a 0: 3B8 are
    // left of 800 parts, and no longer a power of two.  18 bits later, length 6 and slot 63 with
    // ones, 22 direct bits share 0EE00000 in parts of 3B, and there is room for the value 2^22:
    // C0000000 + 3FC00000 + 400000 wraps to 0, which is distance 1.
    m5_plain_pair flag;
    crafted_stream crafted;
    const bytes stream = crafted.bit(flag, false)
                             .bits('b', 8)
                             .bit(flag, true)
                             .bits(0b10'00, 4)
                             .ones(6)
                             .ones(8)
                             .direct(1U << 22, 22)
                             .end();
    EXPECT_EQ(decode(stream, 9, low), bytes_of("abbbbbbbb"));
    EXPECT_EQ(test::m5_plain_decode(stream, 9, 4), bytes_of("abbbbbbbb"));
}

// Streams cut and damaged

test::coded_block coded(u64 seed, u32 min_match)
{
    const m5_block block = test::random_m5_block(seed, min_match, 150);
    return {block.data(), block.stream(min_match), parameters_with(min_match)};
}

TEST(m5_decoder, a_payload_cut_anywhere_gives_the_start_of_its_block_whatever_follows_it)
{
    for (u32 seed = 1; seed <= 5; ++seed)
        test::expect_cuts_to_give_the_start_of_the_block(coded(seed, 2 + seed % 3));
}

TEST(m5_decoder, a_longer_payload_than_needed_is_no_damage)
{
    test::expect_no_damage_from_a_longer_payload(coded(10, 4));
}

TEST(m5_decoder, flipped_bits_give_some_bytes)
{
    for (u32 seed = 1; seed <= 3; ++seed)
        test::expect_flipped_bits_to_give_some_bytes(coded(seed, 1 + seed));
}

TEST(m5_decoder, nonsense_gives_some_bytes)
{
    for (const u32 min_match : {2U, 3U, 4U})
        test::expect_nonsense_to_give_some_bytes(parameters_with(min_match));
}

} // namespace
} // namespace quarnex
