#include "method4/m4_codec.h"
#include "method4/m4_model.h"

#include "method4/m4_streams.h"
#include "support/damaged_streams.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::decode;
using test::m4_block;
using test::m4_plain_coder;
using test::m4_plain_model;
using test::parameters_of;

codec_parameters m4_parameters(u8 level, u8 lit_ctx_bits = 0)
{
    codec_parameters parameters = parameters_of(4, level);
    parameters.lit_ctx_bits = lit_ctx_bits;
    return parameters;
}

/// The parameters of the streams whose shortest match is `min_match`.
codec_parameters parameters_with(u32 min_match, u8 lit_ctx_bits = 0)
{
    return m4_parameters(static_cast<u8>(min_match == 4 ? 7 : 11 - min_match), lit_ctx_bits);
}

const codec_parameters low = m4_parameters(0);

/// Builds a stream after the raw byte 'a' symbol by symbol, with models of the caller.
class crafted_stream {
  public:
    crafted_stream() { coder_.out = {'a'}; }

    crafted_stream& symbol(m4_plain_model& model, u32 sym)
    {
        coder_.freq(model.cum.at(sym), model.cum.at(sym + 1));
        model.step(sym);
        return *this;
    }

    crafted_stream& direct(u32 value, u32 count)
    {
        coder_.direct(value, count);
        return *this;
    }

    u32 range() const { return coder_.range; }

    bytes end()
    {
        coder_.flush();
        return coder_.out;
    }

  private:
    m4_plain_coder coder_;
};

// Blocks without symbols

TEST(m4_decoder, an_out_len_of_1_reads_five_bytes_and_decodes_no_symbol)
{
    EXPECT_EQ(decode({'a', 0, 0, 0, 0, 0}, 1, low), bytes_of("a"));
    EXPECT_EQ(decode({'a', 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 1, low), bytes_of("a"));
    EXPECT_EQ(decode({'a'}, 1, low), bytes_of("a"));
}

TEST(m4_decoder, an_empty_payload_or_an_empty_block_gives_nothing)
{
    EXPECT_TRUE(decode({}, 10, low).empty());
    EXPECT_TRUE(decode({'a', 0, 0, 0, 0, 0}, 0, low).empty());
}

// Streams worked by hand

TEST(m4_decoder, a_literal)
{
    // Symbol 98 goes from 11150 to 11263: 11150 * 1FFFF = 571BD472, 113 * 1FFFF is less than 2^24,
    // so 57 leaves, then 1BD47200.
    EXPECT_EQ(decode({'a', 0x00, 0x57, 0x1B, 0xD4, 0x72, 0x00}, 2, low), bytes_of("ab"));
}

TEST(m4_decoder, ignores_the_first_byte_of_the_coder)
{
    EXPECT_EQ(decode({'a', 0x77, 0x57, 0x1B, 0xD4, 0x72, 0x00}, 2, low), bytes_of("ab"));
}

TEST(m4_decoder, the_shortest_match_has_4_3_or_2_bytes_by_the_level)
{
    m4_plain_model main(288, 2);
    m4_plain_model distance(17, 1);
    const bytes stream =
        crafted_stream().symbol(main, 256).symbol(distance, 0).symbol(main, 'b').end();
    for (u8 level = 0; level <= 7; ++level)
        EXPECT_EQ(decode(stream, 6, m4_parameters(level)), bytes_of("aaaaab")) << int{level};
    EXPECT_EQ(decode(stream, 5, m4_parameters(8)), bytes_of("aaaab"));
    EXPECT_EQ(decode(stream, 4, m4_parameters(9)), bytes_of("aaab"));
}

TEST(m4_decoder, length_symbol_286_is_min_match_plus_30_and_287_is_the_escape)
{
    m4_plain_model main(288, 2);
    m4_plain_model distance(17, 1);
    m4_plain_model length(17, 1);
    crafted_stream crafted;
    crafted.symbol(main, 286).symbol(distance, 0).symbol(main, 'b'); // 34 at distance 1
    crafted.symbol(main, 287).symbol(length, 0).symbol(distance, 0); // 35
    crafted.symbol(main, 'c');
    crafted.symbol(main, 287).symbol(length, 3).symbol(distance, 0);              // 38
    crafted.symbol(main, 287).symbol(length, 4).direct(1, 1).symbol(distance, 0); // 40
    const bytes expected =
        bytes_of(std::string(35, 'a') + std::string(36, 'b') + std::string(1 + 38 + 40, 'c'));
    EXPECT_EQ(expected.size(), 150U); // 17 slots
    EXPECT_EQ(decode(crafted.end(), 127, low), bytes(expected.begin(), expected.begin() + 127));
}

TEST(m4_decoder, the_context_after_a_match_is_its_last_byte)
{
    // "ab", then "ababa" and 'c', of which the first context is 'a', and so is the last.
    m4_plain_model after_a(288, 2);
    m4_plain_model after_b(288, 2);
    m4_plain_model after_c(288, 2);
    m4_plain_model distance(17, 1);
    crafted_stream crafted;
    crafted.symbol(after_a, 'b').symbol(after_b, 257).symbol(distance, 1);
    crafted.symbol(after_a, 'c').symbol(after_c, 'd');
    EXPECT_EQ(decode(crafted.end(), 9, m4_parameters(0, 8)), bytes_of("abababacd"));
}

TEST(m4_decoder, a_context_is_the_lowest_bits_of_a_byte)
{
    // 'a' is 61 and 'q' 71, 'b' is 62 and 'r' 72: of three bits, two contexts.
    m4_plain_model after_1(288, 2);
    m4_plain_model after_2(288, 2);
    crafted_stream crafted;
    crafted.symbol(after_1, 'r').symbol(after_2, 'q').symbol(after_1, 'b');
    crafted.symbol(after_2, 'r').symbol(after_2, 'x');
    EXPECT_EQ(decode(crafted.end(), 6, m4_parameters(0, 3)), bytes_of("arqbrx"));
}

TEST(m4_decoder, contexts_above_the_mask_are_initialised_and_never_used)
{
    const m4_block block = test::random_token_block(1, 1, 4, 2000);
    for (const u8 bits : {u8{0}, u8{3}, u8{5}}) {
        const bytes stream = block.stream(bits);
        const auto in = test::exact_buffer(stream.size());
        std::copy(stream.begin(), stream.end(), in.get());
        const auto out = test::exact_buffer(block.data().size());
        codec_job job;
        job.parameters = m4_parameters(0, bits);
        job.in_buf = in.get();
        job.in_len = static_cast<u32>(stream.size());
        job.out_buf = out.get();
        job.out_len = static_cast<u32>(block.data().size());
        scratch memory(system_allocator);
        job.memory = &memory;
        void* const state = m4_decoder.init(job);
        EXPECT_EQ(m4_decoder.run(job, state).length, job.out_len);
        for (u32 context = 0; context < 256; ++context) {
            const auto& counts = static_cast<m4_dec_state*>(state)->main[context].counts;
            const bool fresh = counts.total == 288 && counts.period == 2 && counts.countdown == 2;
            EXPECT_EQ(fresh, context >= 1U << bits) << int{bits} << ' ' << context;
        }
        m4_decoder.release(job, state);
    }
}

TEST(m4_decoder, a_last_match_that_overruns_the_block_is_cut)
{
    for (u32 overrun = 1; overrun < 40; overrun += 2) {
        for (const u32 dist : {1U, 2U, 4U, 7U, 29U, 30U}) {
            const m4_block block = m4_block().literals_to(30).match(40, dist);
            const bytes out = decode(block.stream(), 70 - overrun, low);
            EXPECT_EQ(out, bytes(block.data().begin(), block.data().end() - overrun));
        }
    }
}

// Copies

TEST(m4_decoder, overlapping_matches_repeat_their_bytes)
{
    m4_block block = m4_block().literals_to(20);
    for (u32 dist = 1; dist <= 20; ++dist) {
        for (u32 len = 2; len <= 70; ++len)
            block.literal('x').match(len, dist).literal('y').match(3, 2);
    }
    for (const u8 bits : {u8{0}, u8{8}}) {
        EXPECT_TRUE(decode(block.stream(bits, 2), block.data().size(), parameters_with(2, bits)) ==
                    block.data());
    }
}

TEST(m4_decoder, the_first_and_last_value_of_every_slot)
{
    m4_block block = m4_block().literals_to(100).match(5 << 20, 97);
    for (u32 slot = 4; slot < 44; ++slot) {
        const u32 width = slot / 2 - 1;
        const u32 base = (2 + slot % 2) << width;
        for (const u32 value : {base, base + (1U << width) - 1}) {
            block.literal(static_cast<u8>(value >> 3)).match(4 + value % 30, value + 1);
            if (value < 1U << 17) block.match(35 + value, 40);
        }
    }
    EXPECT_TRUE(decode(block.stream(), block.data().size(), low) == block.data());
}

TEST(m4_decoder, an_offset_code_of_25_extra_bits_has_its_lowest_24_first)
{
    // Distances above 64 MiB have them.
    m4_block block = m4_block().literals_to(1000).match((64U << 20) + 5000, 997);
    block.match(4, (64U << 20) + 1).match(600, (64U << 20) + 4567).literal('x');
    EXPECT_TRUE(decode(block.stream(), block.data().size(), low) == block.data());
}

TEST(m4_decoder, decodes_streams_of_random_tokens)
{
    for (u32 seed = 1; seed <= 18; ++seed) {
        for (const u32 min_match : {4U, 3U, 2U}) {
            const m4_block block = test::random_token_block(seed, 1, min_match);
            const u32 bits = seed % 9;
            const codec_parameters parameters = parameters_with(min_match, static_cast<u8>(bits));
            ASSERT_TRUE(decode(block.stream(bits, min_match), block.data().size(), parameters) ==
                        block.data())
                << seed;
        }
    }
}

// Damage

TEST(m4_decoder, a_code_that_is_not_below_the_range_at_the_start_is_damage)
{
    EXPECT_EQ(decode({'a', 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, 9, low), bytes_of("a"));
}

TEST(m4_decoder, a_position_past_all_shares_is_damage)
{
    // The shares end at 32767 * 1FFFF = FFFD8001.
    bytes stream{'a', 0, 0xFF, 0xFD, 0x80, 0x01};
    stream.resize(40);
    EXPECT_EQ(decode(stream, 100, low), bytes_of("a"));
    // The last one starts at 32654 * 1FFFF = FF1B8072: the escape, with a length and a distance at
    // the starts of theirs.
    stream = {'a', 0, 0xFF, 0x1B, 0x80, 0x80};
    stream.resize(40);
    EXPECT_EQ(decode(stream, 36, low), bytes(36, 'a'));
}

TEST(m4_decoder, a_direct_value_of_one_bit_too_many_is_damage)
{
    // Slot 36 of a length has 17 bits, and the range has room for 2^17 + 1 values.
    for (const bool good : {true, false}) {
        m4_plain_model main(288, 2);
        m4_plain_model distance(37, 1);
        m4_plain_model length(37, 1);
        crafted_stream crafted;
        crafted.symbol(main, 'a').symbol(main, 287).symbol(length, 36);
        ASSERT_GE(crafted.range(), ((1U << 17) + 1) * (crafted.range() >> 17));
        crafted.direct((1U << 17) - (good ? 1 : 0), 17).symbol(distance, 0);
        const bytes out = decode(crafted.end(), 300000, low);
        EXPECT_TRUE(out == bytes(good ? 300000 : 2, 'a'));
    }
}

TEST(m4_decoder, a_distance_before_the_block_is_damage)
{
    for (u32 slot = 0; slot <= 16; ++slot) {
        m4_plain_model main(288, 2);
        m4_plain_model distance(17, 1);
        crafted_stream crafted;
        crafted.symbol(main, 'b').symbol(main, 256).symbol(distance, slot);
        if (slot > 3) crafted.direct(0, slot / 2 - 1);
        // Of two bytes: distance 2 is the block's start.
        const char* const expected = slot == 0 ? "abbbbb" : slot == 1 ? "ababab" : "ab";
        EXPECT_EQ(decode(crafted.end(), 6, low), bytes_of(expected)) << slot;
    }
}

test::coded_block coded(u32 seed, u32 min_match)
{
    const m4_block block = test::random_token_block(seed, 1, min_match, 100);
    const u32 bits = 4 * (seed % 3);
    return {block.data(), block.stream(bits, min_match),
            parameters_with(min_match, static_cast<u8>(bits))};
}

TEST(m4_decoder, a_cut_payload_gives_the_start_of_the_block_whatever_follows)
{
    for (u32 seed = 1; seed <= 3; ++seed)
        test::expect_cuts_to_give_the_start_of_the_block(coded(seed, 2 + seed % 3));
}

TEST(m4_decoder, a_longer_payload_than_needed_is_no_damage)
{
    test::expect_no_damage_from_a_longer_payload(coded(10, 4));
}

TEST(m4_decoder, flipped_bits_give_some_bytes)
{
    for (const u32 min_match : {2U, 4U})
        test::expect_flipped_bits_to_give_some_bytes(coded(min_match, min_match));
}

TEST(m4_decoder, nonsense_gives_some_bytes)
{
    for (const u32 min_match : {2U, 3U, 4U})
        test::expect_nonsense_to_give_some_bytes(
            parameters_with(min_match, static_cast<u8>(2 * min_match)));
}

TEST(m4_decoder, invalid_parameters_do_no_harm)
{
    const m4_block block = test::random_token_block(3, 1, 2, 300);
    codec_parameters parameters = m4_parameters(9);
    parameters.hash_bits = -1;
    parameters.chain_bits = 99;
    for (const u8 bits : {u8{8}, u8{9}, u8{31}, u8{32}, u8{255}}) {
        parameters.lit_ctx_bits = bits;
        for (const u8 level : {u8{9}, u8{10}, u8{255}}) {
            parameters.level = level;
            EXPECT_EQ(decode(block.stream(8, 2), block.data().size(), parameters), block.data());
        }
    }
}

} // namespace
} // namespace quarnex
