#include "method3/m3_codec.h"

#include "method3/m3_streams.h"
#include "support/damaged_streams.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::decode;
using test::m3_bits;
using test::m3_block;
using test::parameters_of;

const codec_parameters low = parameters_of(3, 0);

/// The parameters of the streams whose shortest match is `min_match`.
codec_parameters parameters_with(u32 min_match)
{
    return parameters_of(3, static_cast<u8>(min_match == 4 ? 7 : 11 - min_match));
}

// Blocks without bits

TEST(m3_decoder, an_out_len_of_1_copies_the_first_byte_and_reads_no_bit)
{
    EXPECT_EQ(decode({'a', 0xFF, 0xFF}, 1, low), bytes_of("a"));
    EXPECT_EQ(decode({'a'}, 1, low), bytes_of("a"));
}

TEST(m3_decoder, an_empty_payload_or_an_empty_block_gives_nothing)
{
    EXPECT_TRUE(decode({}, 10, low).empty());
    EXPECT_TRUE(decode({'a', 0xFF}, 0, low).empty());
}

// Streams worked by hand: up to 16 symbols of a model, its codes are those of the start.  Of 17
// slots, 16 and 15 have the codes 00000 and 00001, and slots 14 to 0 have 0001 to 1111.

TEST(m3_decoder, literals)
{
    // The bytes 'b' = 98 and 255 by 255 - 98 = 10011101 and 287 - 255 = 32 of 9 bits.
    EXPECT_EQ(decode(m3_bits("10011101 000100000"), 3, low), (bytes{'a', 'b', 255}));
}

TEST(m3_decoder, the_shortest_match_has_4_3_or_2_bytes_by_the_level)
{
    // Symbol 256 is 287 - 256 = 31 of 9 bits, distance slot 0, then 'b'.
    const bytes stream = m3_bits("000011111 1111 10011101");
    for (u8 level = 0; level <= 7; ++level)
        EXPECT_EQ(decode(stream, 6, parameters_of(3, level)), bytes_of("aaaaab")) << int{level};
    EXPECT_EQ(decode(stream, 5, parameters_of(3, 8)), bytes_of("aaaab"));
    EXPECT_EQ(decode(stream, 4, parameters_of(3, 9)), bytes_of("aaab"));
}

TEST(m3_decoder, length_symbol_286_gives_min_match_and_30_and_the_next_length_takes_the_escape)
{
    // 286 is 000000001; 287 is 000000000, and the remainder 0 is length slot 0, 1111.
    const bytes longest = m3_bits("000000001 1111 10011101");
    const bytes escape = m3_bits("000000000 1111 1111 10011101");
    for (const u32 min_match : {4U, 3U, 2U}) {
        const std::string run(1 + min_match + 30, 'a');
        EXPECT_EQ(decode(longest, run.size() + 1, parameters_with(min_match)), bytes_of(run + 'b'));
        EXPECT_EQ(decode(escape, run.size() + 2, parameters_with(min_match)), bytes_of(run + "ab"));
    }
}

TEST(m3_decoder, a_remainder_of_4_needs_extra_bits_and_3_does_not)
{
    // Slot 3 is 1100; slot 4 is 1011, and a bit behind it makes 4 or 5.
    const auto run = [](usize size) { return bytes_of(std::string(size, 'a') + 'b'); };
    EXPECT_EQ(decode(m3_bits("000000000 1100 1111 10011101"), 40, low), run(1 + 35 + 3));
    EXPECT_EQ(decode(m3_bits("000000000 1011 0 1111 10011101"), 41, low), run(1 + 35 + 4));
    EXPECT_EQ(decode(m3_bits("000000000 1011 1 1111 10011101"), 42, low), run(1 + 35 + 5));
}

TEST(m3_decoder, an_offset_code_with_more_than_16_extra_bits_is_read_whole)
{
    // A block of 0x60005 bytes has 38 slots: 37 to 26 have the codes 000000 to 001011, the others
    // 00110 to 11111.  A match of 0x60000 at distance 1: 0x5FFDD above 35 is slot 36 and 17 bits,
    // 1FFDD.  Then one of 4 at distance 0x55556: 55555 is slot 36 and 15555.
    const bytes stream = m3_bits("000000000 000001 11111111111011101 11111"
                                 "000011111 000001 10101010101010101");
    EXPECT_TRUE(decode(stream, 0x60005, low) == bytes(0x60005, 'a'));
    m3_block block = m3_block().match(0x60000, 1).match(4, 0x55556);
    EXPECT_EQ(block.stream(), stream);
    // With bytes that tell the place.
    block = m3_block().literals_to(300000).match(4, 0x40001).match(2000, 0x41234).match(9, 1);
    EXPECT_TRUE(decode(block.stream(), block.data().size(), low) == block.data());
}

TEST(m3_decoder, a_last_match_that_overruns_the_block_is_cut)
{
    // Even to a single byte, also where it is the block's first one that is copied.
    for (u32 overrun = 1; overrun < 40; ++overrun) {
        for (const u32 dist : {1U, 2U, 3U, 4U, 7U, 20U, 29U, 30U}) {
            const m3_block block = m3_block().literals_to(30).match(40, dist);
            const bytes out = decode(block.stream(), 70 - overrun, low);
            EXPECT_EQ(out, bytes(block.data().begin(), block.data().end() - overrun));
        }
    }
}

// Copies

TEST(m3_decoder, distances_of_1_to_4_and_of_5_or_more_repeat_themselves_alike)
{
    for (const u32 min_match : {2U, 3U, 4U}) {
        for (u32 dist = 1; dist <= 20; ++dist) {
            for (u32 len = min_match; len <= 70; ++len) {
                m3_block block;
                block.literals_to(20, dist).match(len, dist).literal('x').match(4, 3).literal('y');
                ASSERT_EQ(decode(block.stream(min_match), block.data().size(),
                                 parameters_with(min_match)),
                          block.data())
                    << len << " at " << dist;
            }
        }
    }
}

TEST(m3_decoder, every_slot_that_fits_a_block_at_both_of_its_ends)
{
    std::vector<u32> values;
    for (u32 slot = 4; slot < 44; ++slot) {
        const u32 width = slot / 2 - 1;
        const u32 base = (2 + slot % 2) << width;
        values.insert(values.end(), {base, base + (1U << width) - 1});
    }
    m3_block block = m3_block().literals_to(100).match(5 << 20, 97);
    for (const u32 value : values) {
        block.literal(static_cast<u8>(value >> 3)).match(4 + value % 30, value + 1);
        if (value < 1U << 17) block.match(35 + value, 40);
    }
    EXPECT_TRUE(decode(block.stream(), block.data().size(), low) == block.data());
}

TEST(m3_decoder, decodes_any_valid_stream_of_all_kinds)
{
    for (u64 seed = 1; seed <= 30; ++seed) {
        for (const u32 min_match : {4U, 3U, 2U}) {
            const m3_block block = test::random_token_block(seed, 1, min_match);
            const bytes stream = block.stream(min_match);
            const usize size = block.data().size();
            ASSERT_TRUE(decode(stream, size, parameters_with(min_match)) == block.data()) << seed;
        }
    }
}

TEST(m3_decoder, decodes_long_streams_whose_codes_are_mended_only)
{
    for (const u32 min_match : {4U, 3U, 2U}) {
        const m3_block block = test::random_token_block(1, 1, min_match, 60000);
        EXPECT_TRUE(decode(block.stream(min_match), block.data().size(),
                           parameters_with(min_match)) == block.data());
    }
}

// Codes as long as they come

TEST(m3_decoder, takes_codes_of_30_bits)
{
    m3_block block =
        test::block_of_distance_slots(test::symbols_of_long_codes(test::groups_of_30_bits));
    // All slots that the block has room for, of which the longest codes have 30 bits.
    for (u32 slot = 4; slot < 52; ++slot)
        block.match(4, ((2 + slot % 2) << (slot / 2 - 1)) + 1).literal(static_cast<u8>(slot));
    block.match(test::long_code_block - static_cast<u32>(block.data().size()), 70);
    EXPECT_TRUE(decode(block.stream(), test::long_code_block, low) == block.data());
}

TEST(m3_decoder, a_code_of_31_bits_is_damage_at_the_token_that_makes_it)
{
    m3_block block =
        test::block_of_distance_slots(test::symbols_of_long_codes(test::groups_of_31_bits));
    const usize good = block.data().size() - 4;
    block.literals_to(block.data().size() + 1000);
    block.match(test::long_code_block - static_cast<u32>(block.data().size()), 70);
    const bytes out = decode(block.stream(), test::long_code_block, low);
    EXPECT_EQ(out.size(), good);
    EXPECT_TRUE(std::equal(out.begin(), out.end(), block.data().begin()));
}

// Damage

TEST(m3_decoder, a_distance_before_the_block_is_damage)
{
    // Of two bytes: distance 2 is the block's start, 3 is before it; so is slot 16 with 7 bits.
    EXPECT_EQ(decode(m3_bits("10011101 000011111 1110"), 6, low), bytes_of("ababab"));
    EXPECT_EQ(decode(m3_bits("10011101 000011111 1101 10011101"), 7, low), bytes_of("ab"));
    EXPECT_EQ(decode(m3_bits("10011101 000011111 00000 1111111"), 7, low), bytes_of("ab"));
}

test::coded_block coded(u32 seed, u32 min_match)
{
    const m3_block block = test::random_token_block(seed, 1, min_match, 150);
    return {block.data(), block.stream(min_match), parameters_with(min_match)};
}

TEST(m3_decoder, a_payload_cut_anywhere_gives_the_start_of_its_block_whatever_lies_behind_it)
{
    for (u32 seed = 1; seed <= 5; ++seed)
        test::expect_cuts_to_give_the_start_of_the_block(coded(seed, 2 + seed % 3));
}

TEST(m3_decoder, a_longer_payload_than_needed_is_no_damage)
{
    test::expect_no_damage_from_a_longer_payload(coded(10, 4));
}

TEST(m3_decoder, flipped_bits_give_some_bytes)
{
    for (u32 seed = 1; seed <= 3; ++seed)
        test::expect_flipped_bits_to_give_some_bytes(coded(seed, 1 + seed));
}

TEST(m3_decoder, nonsense_gives_some_bytes)
{
    for (const u32 min_match : {2U, 3U, 4U})
        test::expect_nonsense_to_give_some_bytes(parameters_with(min_match));
}

TEST(m3_decoder, parameters_that_make_no_sense_do_no_harm)
{
    const m3_block block = test::random_token_block(3, 1, 2, 300);
    codec_parameters parameters = parameters_of(3, 9);
    parameters.lit_ctx_bits = 255;
    parameters.hash_bits = -1;
    parameters.chain_bits = 99;
    for (const u8 level : {u8{9}, u8{10}, u8{255}}) {
        parameters.level = level;
        EXPECT_EQ(decode(block.stream(2), block.data().size(), parameters), block.data());
    }
}

} // namespace
} // namespace quarnex
