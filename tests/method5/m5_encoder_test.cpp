#include "match/ladder.h"
#include "method5/m5_codec.h"
#include "method5/m5_tokens.h"

#include "method5/m5_streams.h"
#include "support/plain_payload.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::encode;
using test::expect_plain_payload;
using test::m5_block;
using test::parameters_of;
using test::plain_token;

constexpr u8 levels = ladder_levels;
constexpr u8 hash_levels = 8; // the first ones, which search by hash values

codec_parameters m5_parameters(u8 level, i32 hash_bits = 12)
{
    return parameters_of(5, level, hash_bits);
}

/// The stream that the token writer makes of a block's tokens, with what it learns in `state`.
template <u32 MinMatch = 4>
bytes write_tokens(const bytes& block, const std::vector<plain_token>& tokens,
                   m5_encoder_state& state)
{
    const auto in = test::exact_buffer(block.size());
    std::copy(block.begin(), block.end(), in.get());
    const auto out = test::exact_buffer(block.size() + out_slack);
    codec_job job;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(block.size());
    job.out_buf = out.get();
    m5_tokens<MinMatch> writer(job, state);
    u32 pos = writer.first_pos;
    for (const plain_token& token : tokens) {
        token.dist == 0 ? writer.literal(pos) : writer.match(pos, token.len, token.dist);
        pos += token.len;
    }
    return {out.get(), out.get() + writer.finish()};
}

template <u32 MinMatch = 4>
bytes write_tokens(const bytes& block, const std::vector<plain_token>& tokens)
{
    return write_tokens<MinMatch>(block, tokens, *std::make_unique<m5_encoder_state>());
}

bytes write_tokens(const m5_block& block)
{
    return write_tokens(block.data(), block.tokens());
}

/// Returns the coded bytes of a match right after the raw bytes of a block.
bytes first_match(u32 len, u32 dist)
{
    const bytes stream = write_tokens(bytes(2 + len), {{len, dist}});
    return {stream.begin() + 2, stream.end()};
}

// Blocks that are stored

TEST(m5_encoder, an_in_len_of_1_or_2_is_stored)
{
    for (u8 level = 0; level < levels; ++level) {
        EXPECT_EQ(encode({7}, m5_parameters(level)), bytes{7});
        EXPECT_EQ(encode({7, 8}, m5_parameters(level)), (bytes{7, 8}));
    }
}

TEST(m5_encoder, a_stream_as_long_as_the_block_is_stored)
{
    int stored = 0;
    for (u32 run = 1; run < 40; ++run) {
        bytes block = bytes_of("0123456789");
        block.insert(block.end(), run, 'x');
        const bytes stream =
            test::m5_plain_stream(block, test::plain_search(block, test::m5_rules, 0, 12, 1), 4);
        stored += stream.size() == block.size();
        EXPECT_EQ(encode(block, m5_parameters(0)), stream.size() < block.size() ? stream : block);
    }
    EXPECT_GT(stored, 0);
}

// Tokens

TEST(m5_tokens, a_stream_of_literals_only)
{
    // No pair is used twice, so each bit halves the range, and the bits 0 01100011 0 01100100
    // 0 01100101 0 01100110 come out nearly as they are: 31 99 0C A6 60.  But the first 1, the
    // third bit, adds 1FFFC000, which is 4000 less than 20000000; the rest is exact.
    EXPECT_EQ(write_tokens(m5_block().literal('c').literal('d').literal('e').literal('f')),
              (bytes{'a', 'b', 0x00, 0x31, 0x98, 0xCC, 0xA6, 0x60, 0x00, 0x00, 0x00}));
}

TEST(m5_tokens, the_minimum_match)
{
    // Flag 1, prefix 0, value 0, slot 000001, each from a fresh pair:
    // 1: low = 7FFFC000, range = 80003FFF; eight times 0 but for the last: range = 1000000;
    // 1: low = 807FC000, range = 800000, and the byte 80 leaves.
    EXPECT_EQ(first_match(4, 2), (bytes{0x00, 0x80, 0x7F, 0xC0, 0x00, 0x00}));
}

TEST(m5_tokens, a_match_one_byte_longer_differs_in_the_last_bit_of_the_length_only)
{
    // The third bit is a 1 and adds 20000000.
    EXPECT_EQ(first_match(5, 2), (bytes{0x00, 0xA0, 0x7F, 0xC0, 0x00, 0x00}));
}

TEST(m5_tokens, the_shortest_match_of_every_kind_of_stream_is_written_alike)
{
    const bytes expected = write_tokens<4>(bytes(6), {{4, 2}});
    EXPECT_EQ(write_tokens<3>(bytes(5), {{3, 2}}), expected);
    EXPECT_EQ(write_tokens<2>(bytes(4), {{2, 2}}), expected);
}

TEST(m5_tokens, slots_22_and_23_have_10_bits_and_the_latter_2_direct_ones)
{
    // Flag, prefix and value 100, then slot 010110 or 010111: low = 8AFFC000, range = 1000000
    // before the last bit.  A 0 sends 8A and leaves low = FFC00000, a 1 sends 8B and leaves
    // 7FC00000, both with range = 80000000.
    // Slot 22, ten 0: the eighth takes range to 800000: FF leaves, C0000000 stays.
    EXPECT_EQ(first_match(4, 2049), (bytes{0x00, 0x8A, 0xFF, 0xC0, 0x00, 0x00, 0x00}));
    // Slot 22, ten 1: eight of them add 7F800000: 1 7F400000, a carry and 7F leave; the ninth and
    // tenth make 40000000 to A0000000.
    EXPECT_EQ(first_match(4, 3072), (bytes{0x00, 0x8B, 0x7F, 0xA0, 0x00, 0x00, 0x00}));
    // Slot 23, eight 0: 7F leaves, C0000000 stays; the group 00 adds nothing.
    EXPECT_EQ(first_match(4, 3073), (bytes{0x00, 0x8B, 0x7F, 0xC0, 0x00, 0x00, 0x00}));
    // Slot 23, eight 1: 7FC00000 + 7F800000: FF leaves, 40000000 stays; the group 11 adds three
    // times 20000000.
    EXPECT_EQ(first_match(4, 4096), (bytes{0x00, 0x8B, 0xFF, 0xA0, 0x00, 0x00, 0x00}));
}

TEST(m5_tokens, every_distance_slot_at_both_of_its_ends)
{
    std::vector<plain_token> tokens;
    for (u32 slot = 0; slot < 64; ++slot) {
        const u32 width = slot < 4 ? 0 : slot / 2 - 1;
        const u32 base = slot < 4 ? slot : (2 + slot % 2) << width;
        const u32 last = std::min(base + ((1U << width) - 1), 0xFFFFFFFE); // 2^32 has no u32
        for (const u32 offset : {base, base + (last - base) / 2, last}) {
            for (u32 len = 4; len <= 8; ++len) tokens.push_back({len, offset + 1});
        }
    }
    for (const plain_token& token : tokens) {
        const bytes block(2 + token.len);
        ASSERT_EQ(write_tokens(block, {token}), test::m5_plain_stream(block, {token}, 4))
            << token.len << " at " << token.dist;
    }
    // And in one stream, where the slots share what their class has learnt.
    const bytes block(2 + tokens.size() / 5 * (4 + 5 + 6 + 7 + 8));
    EXPECT_EQ(write_tokens(block, tokens), test::m5_plain_stream(block, tokens, 4));
}

TEST(m5_tokens, long_matches)
{
    for (u32 bits = 2; bits <= 20; ++bits) {
        for (u32 len = (1U << bits) + 1; len <= (1U << bits) + 4; ++len) {
            const std::vector<plain_token> one{{len, 1}};
            ASSERT_EQ(write_tokens(bytes(2 + len), one),
                      test::m5_plain_stream(bytes(2 + len), one, 4))
                << len;
        }
    }
}

TEST(m5_tokens, the_context_of_a_literal_after_a_match_is_its_last_two_bytes)
{
    // "abcabca" and x: the match ends in 'c', 'a'.  match_flag is that of 'a'; the first bit has
    // the context 361: the lower half of 'c' (3) and all of 'a' (61).
    const auto state = std::make_unique<m5_encoder_state>();
    const m5_block block = m5_block().literal('c').match(4, 3).literal('x');
    const bytes stream = write_tokens<4>(block.data(), block.tokens(), *state);
    EXPECT_EQ(stream, block.stream());
    m5_prob_pair seen_0;
    seen_0.update(0);
    EXPECT_EQ(state->model.match_flag[u8{'a'}].halves, seen_0.halves);
    EXPECT_EQ(state->model.lit_high[3][0x361].halves, seen_0.halves);
    EXPECT_EQ(test::decode(stream, 8, m5_parameters(0)), bytes_of("abcabcax"));
}

TEST(m5_tokens, the_flag_after_a_match_is_that_of_its_last_byte)
{
    const auto state = std::make_unique<m5_encoder_state>();
    const m5_block block = m5_block().literal('c').match(4, 3).match(5, 2);
    EXPECT_EQ(write_tokens<4>(block.data(), block.tokens(), *state), block.stream());
    m5_prob_pair seen_1;
    seen_1.update(1);
    EXPECT_EQ(state->model.match_flag[u8{'a'}].halves, seen_1.halves);
    EXPECT_EQ(state->model.match_flag[u8{'c'}].halves, seen_1.halves);
}

TEST(m5_tokens, are_written_as_the_plain_writer_writes_them)
{
    for (u64 seed = 1; seed <= 20; ++seed) {
        const m5_block block = test::random_m5_block(seed, 4);
        const bytes stream = write_tokens(block);
        ASSERT_TRUE(stream == block.stream()) << seed;
        EXPECT_TRUE(test::decode(stream, block.data().size(), m5_parameters(0)) == block.data());
        const m5_block shorter = test::random_m5_block(seed, 2);
        EXPECT_TRUE(write_tokens<2>(shorter.data(), shorter.tokens()) == shorter.stream(2));
    }
}

TEST(m5_tokens, any_number_of_tokens_around_a_batch_is_written)
{
    // A literal is nine steps, a match of four bytes at distance 2 too.
    constexpr u32 per_batch = (m5_batch_steps + 8) / 9;
    for (const u32 batches : {1U, 2U, 3U}) {
        for (u32 count = batches * per_batch - 2; count <= batches * per_batch + 2; ++count) {
            // Few symbols, or the stream would be longer than the block.
            bytes block = test::find_shape("random").make(2 + count, count);
            for (u8& byte : block) byte &= 1;
            const std::vector<plain_token> literals(count, {1, 0});
            EXPECT_EQ(write_tokens(block, literals), test::m5_plain_stream(block, literals, 4));
            const bytes zeros(2 + 4 * count);
            const std::vector<plain_token> matches(count, {4, 2});
            EXPECT_EQ(write_tokens(zeros, matches), test::m5_plain_stream(zeros, matches, 4));
        }
    }
}

TEST(m5_tokens, the_longest_token_fits_after_any_other_at_the_end_of_a_batch)
{
    // The length has 2 * 19 steps; slot 22 has ten extra bits.
    for (u32 before = 105; before <= 114; ++before) {
        m5_block block;
        for (u32 i = 0; i < 4000; ++i) block.literal('x');
        for (u32 i = 0; i < before; ++i) block.literal(static_cast<u8>(i));
        block.match(1U << 19, 3000).literal('y');
        EXPECT_TRUE(write_tokens(block) == block.stream()) << before;
    }
}

TEST(m5_tokens, the_models_are_up_to_date_after_each_token)
{
    // The prices of the optimal parses depend on them.
    const bytes block = bytes_of("abcabcabx");
    bytes out(block.size() + out_slack);
    codec_job job;
    job.in_buf = block.data();
    job.in_len = static_cast<u32>(block.size());
    job.out_buf = out.data();
    const auto state = std::make_unique<m5_encoder_state>();
    m5_tokens<4> writer(job, *state);
    writer.literal(2);
    m5_prob_pair flag;
    flag.update(0);
    EXPECT_EQ(state->model.match_flag[u8{'b'}].halves, flag.halves);
    writer.match(3, 5, 3);
    flag = {};
    flag.update(1);
    EXPECT_EQ(state->model.match_flag[u8{'c'}].halves, flag.halves);
    flag = {};
    flag.update(0);
    EXPECT_EQ(state->model.dist_slot[1][1].halves, flag.halves);
}

TEST(m5_tokens, are_full_at_the_end_of_the_batch_that_fills_the_block)
{
    // With fresh models each literal takes 9 bits, so those of one batch exceed a block of 100
    // bytes.  Later literals are dropped.
    constexpr u32 size = 100;
    constexpr u32 tokens = 20 * m5_batch_steps;
    const bytes text = test::find_shape("random").make(tokens, 1);
    const auto out = test::exact_buffer(size + out_slack);
    codec_job job;
    job.in_buf = text.data();
    job.in_len = size;
    job.out_buf = out.get();
    const auto state = std::make_unique<m5_encoder_state>();
    m5_tokens<4> writer(job, *state);
    for (u32 pos = 2; pos < tokens; ++pos) {
        EXPECT_EQ(writer.full(), pos >= 2 + (m5_batch_steps + 8) / 9) << pos;
        writer.literal(pos);
    }
    EXPECT_GE(writer.finish(), size);
}

// What levels 0 to 7 find

TEST(m5_encoder, a_block_that_repeats_one_byte_is_one_match_from_position_2_to_the_end)
{
    // The tables of level 3 start at position 1, all others at position 0.
    const bytes block(40, 'a');
    for (u8 level = 0; level < hash_levels; ++level) {
        const std::vector<plain_token> tokens{{38, level == 3 ? 1U : 2U}};
        EXPECT_EQ(encode(block, m5_parameters(level)), test::m5_plain_stream(block, tokens, 4))
            << int{level};
    }
}

TEST(m5_encoder, the_example_of_the_format_page)
{
    const bytes block = bytes_of("abcdabcdabcdabcdabcdabceabceabceabceabce");
    EXPECT_EQ(encode(block, m5_parameters(0)),
              (bytes{0x61, 0x62, 0x00, 0x31, 0x98, 0xFC, 0x21, 0x9C, 0x17, 0xC0, 0x06, 0xAD, 0x34,
                     0x52, 0x80}));
    EXPECT_EQ(encode(block, m5_parameters(3)),
              (bytes{0x61, 0x62, 0x00, 0x31, 0x98, 0xCC, 0x3E, 0x00, 0xCE, 0x0B, 0xB8, 0x81, 0xB4,
                     0xA3, 0x80}));
    for (const u8 level : {u8{1}, u8{2}, u8{4}, u8{5}, u8{6}, u8{7}}) {
        EXPECT_EQ(encode(block, m5_parameters(level)),
                  (bytes{0x61, 0x62, 0x00, 0x31, 0x98, 0xFC, 0x21, 0x9C, 0x17, 0xE4, 0x26, 0x46,
                         0xC3, 0x80}))
            << int{level};
    }
}

// Levels 8 and 9

TEST(m5_encoder, a_match_of_2_bytes_can_be_chosen_at_level_9_and_cannot_at_level_8)
{
    // At first a match has 9 bits, as a literal has.
    const bytes block = bytes_of("xyab1ab2" + std::string(60, 'z'));
    std::vector<plain_token> tokens(7, {1, 0});
    tokens.push_back({59, 1});
    EXPECT_EQ(encode(block, m5_parameters(8)), test::m5_plain_stream(block, tokens, 3));
    tokens.erase(tokens.begin());
    tokens[3] = {2, 3};
    EXPECT_EQ(encode(block, m5_parameters(9)), test::m5_plain_stream(block, tokens, 2));
}

TEST(m5_encoder, positions_0_and_1_are_sources_at_level_8_and_position_1_is_at_level_9)
{
    const bytes block = bytes_of("abcdeabcde" + std::string(60, 'z'));
    const std::vector<plain_token> all{{1, 0}, {1, 0}, {1, 0}, {5, 5}, {1, 0}, {59, 1}};
    EXPECT_EQ(encode(block, m5_parameters(8)), test::m5_plain_stream(block, all, 3));
    const std::vector<plain_token> from_1{{1, 0}, {1, 0}, {1, 0}, {1, 0}, {4, 5}, {1, 0}, {59, 1}};
    EXPECT_EQ(encode(block, m5_parameters(9)), test::m5_plain_stream(block, from_1, 2));
}

TEST(m5_encoder, a_window_of_one_position_is_one_literal)
{
    // After the two raw bytes, and after a match that leaves one byte.
    EXPECT_EQ(encode({7, 7, 7}, m5_parameters(8)), (bytes{7, 7, 7}));
    for (const u8 level : {u8{8}, u8{9}}) {
        const bytes block(2 + 512 + 1, 'z');
        expect_plain_payload(block, m5_parameters(level), "equal bytes");
    }
}

TEST(m5_encoder, positions_of_a_ring_wrap_at_16_mib)
{
    // The same text at 0, at 16 MiB and somewhat later, zeros between: the third one finds the
    // second under the positions of the first, 2^24 too far back.
    constexpr usize wrap = 1U << 24;
    const bytes part = test::find_shape("random").make(3000, 1);
    bytes block(wrap + 20000);
    for (const usize at : {usize{0}, wrap, wrap + 9000}) {
        std::copy(part.begin(), part.end(), block.begin() + static_cast<i64>(at));
    }
    const codec_parameters parameters = m5_parameters(4, 16);
    const auto tokens = test::plain_search(block, test::m5_rules, 4, 16, 2);
    EXPECT_NE(std::find_if(tokens.begin(), tokens.end(),
                           [](const plain_token& token) {
                               return token.len > 1000 && token.dist == wrap + 9000;
                           }),
              tokens.end());
    const bytes payload = encode(block, parameters);
    EXPECT_TRUE(payload == test::m5_plain_stream(block, tokens, 4));
    EXPECT_TRUE(test::decode(payload, block.size(), parameters) == block);
}

} // namespace
} // namespace quarnex
