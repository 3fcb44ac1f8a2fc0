#include "match/ladder.h"
#include "method4/m4_codec.h"
#include "method4/m4_tokens.h"

#include "method4/m4_streams.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>
#include <numeric>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::encode;
using test::m4_block;
using test::parameters_of;
using test::plain_token;
using test::run_encoder;

constexpr u8 levels = ladder_levels;
constexpr u8 hash_levels = 8; // the first ones, which search by hash values

codec_parameters m4_parameters(u8 level, i32 hash_bits = 12, i32 chain_bits = 0,
                               u8 lit_ctx_bits = 0)
{
    codec_parameters parameters = parameters_of(4, level);
    parameters.hash_bits = hash_bits;
    if (chain_bits != 0) parameters.chain_bits = chain_bits;
    parameters.lit_ctx_bits = lit_ctx_bits;
    return parameters;
}

/// The stream that the token writer makes of a block's tokens, with what it learns in `state`.
template <u32 MinMatch = 4>
bytes write_tokens(const m4_block& block, u8 lit_ctx_bits, m4_enc_state& state)
{
    const usize size = block.data().size();
    const auto out = test::exact_buffer(size + out_slack);
    codec_job job;
    job.parameters.lit_ctx_bits = lit_ctx_bits;
    job.in_buf = block.data().data();
    job.in_len = static_cast<u32>(size);
    job.out_buf = out.get();
    state.start(job.in_len);
    m4_tokens<MinMatch> writer(job.in_buf, m4_symbol_writer(job, state));
    u32 pos = writer.first_pos;
    for (const plain_token& token : block.tokens()) {
        token.dist == 0 ? writer.literal(pos) : writer.match(pos, token.len, token.dist);
        pos += token.len;
    }
    return {out.get(), out.get() + writer.finish()};
}

template <u32 MinMatch = 4>
bytes write_tokens(const m4_block& block, u8 lit_ctx_bits = 0)
{
    return write_tokens<MinMatch>(block, lit_ctx_bits, *std::make_unique<m4_enc_state>());
}

// Blocks that are stored

TEST(m4_encoder, a_one_byte_block_would_be_the_raw_byte_and_the_flush_and_goes_out_raw)
{
    EXPECT_EQ(write_tokens(m4_block()), (bytes{'a', 0, 0, 0, 0, 0}));
    for (u8 level = 0; level < levels; ++level) {
        EXPECT_EQ(run_encoder({7}, m4_parameters(level)).result.length, 1U);
        EXPECT_EQ(encode({7}, m4_parameters(level)), bytes{7});
    }
}

TEST(m4_encoder, incompressible_data_come_out_as_the_raw_block_and_the_flush_stays_in_the_slack)
{
    for (usize size = 1; size <= 300; ++size) {
        const bytes block = test::find_shape("random").make(size, size);
        const auto level = static_cast<u8>(size % levels);
        EXPECT_EQ(encode(block, m4_parameters(level)), block) << size;
    }
    const bytes block = test::find_shape("random").make(5000, 1);
    for (u8 level = 0; level < levels; ++level) {
        EXPECT_EQ(run_encoder(block, m4_parameters(level)).result.length, 5000U);
        EXPECT_EQ(encode(block, m4_parameters(level)), block);
    }
}

TEST(m4_encoder, a_stream_as_long_as_the_block_is_stored)
{
    int stored = 0;
    for (u32 run = 1; run < 40; ++run) {
        bytes block = bytes_of("0123456789");
        block.insert(block.end(), run, 'x');
        const bytes stream =
            test::m4_plain_stream(block, test::plain_search(block, test::m4_rules, 0, 12, 1), 4, 0);
        stored += stream.size() == block.size();
        EXPECT_EQ(encode(block, m4_parameters(0)), stream.size() < block.size() ? stream : block);
    }
    EXPECT_GT(stored, 0);
}

// Tokens

TEST(m4_tokens, a_literal_by_hand)
{
    // Symbol 98 goes from 11150 to 11263: 11150 * 1FFFF = 571BD472, 113 * 1FFFF is less than 2^24,
    // so 57 leaves, then 1BD47200.
    EXPECT_EQ(write_tokens(m4_block().literal('b')),
              (bytes{'a', 0x00, 0x57, 0x1B, 0xD4, 0x72, 0x00}));
}

TEST(m4_tokens, the_shortest_match_of_every_kind_of_stream_is_written_alike)
{
    const bytes expected = write_tokens<4>(m4_block().match(4, 1));
    EXPECT_EQ(expected, m4_block(m4_block().match(4, 1)).stream());
    EXPECT_EQ(write_tokens<3>(m4_block().match(3, 1)), expected);
    EXPECT_EQ(write_tokens<2>(m4_block().match(2, 1)), expected);
}

TEST(m4_tokens, are_written_as_the_plain_writer_writes_them)
{
    for (u32 seed = 1; seed <= 18; ++seed) {
        const auto bits = static_cast<u8>(seed % 9);
        const m4_block block = test::random_token_block(seed, 1, 4);
        EXPECT_TRUE(write_tokens(block, bits) == block.stream(bits)) << seed;
        const m4_block shorter = test::random_token_block(seed, 1, 2);
        EXPECT_TRUE(write_tokens<2>(shorter, bits) == shorter.stream(bits, 2)) << seed;
    }
    const m4_block longer = test::random_token_block(21, 1, 4, 60000);
    EXPECT_TRUE(write_tokens(longer) == longer.stream());
}

TEST(m4_tokens, a_distance_of_25_extra_bits_has_its_lowest_24_first)
{
    // Which needs a block of more than 64 MiB.
    m4_block block = m4_block().literals_to(1000).match((64U << 20) + 5000, 997);
    block.match(4, (64U << 20) + 1).match(600, (64U << 20) + 4567).literal('x');
    EXPECT_EQ(write_tokens(block), block.stream());
}

TEST(m4_tokens, of_no_context_bits_go_through_main_model_0_only)
{
    const auto state = std::make_unique<m4_enc_state>();
    const m4_block block = test::random_token_block(1, 1, 4, 2000);
    for (const u8 bits : {u8{0}, u8{3}, u8{5}}) {
        write_tokens(block, bits, *state);
        u32 counted = 0;
        for (u32 context = 0; context < 256; ++context) {
            const auto& counts = state->main[context].counts;
            const auto* const end = counts.counts + main_symbols;
            const u32 sum = std::accumulate(+counts.counts, +end, 0U) - main_symbols;
            EXPECT_EQ(sum != 0, context < 1U << bits) << int{bits} << ' ' << context;
            counted += sum;
        }
        EXPECT_EQ(counted, 2 * block.tokens().size());
    }
    write_tokens(block, 0, *state);
    EXPECT_EQ(state->main[0].counts.period, 2048U); // the steady one, after 1023 symbols
}

TEST(m4_tokens, are_full_once_the_stream_is_as_long_as_the_block)
{
    // The raw byte and the coder's first are two, and each literal that is new is one.
    const bytes block{10, 20, 30, 40};
    const auto out = test::exact_buffer(block.size() + out_slack);
    codec_job job;
    job.in_buf = block.data();
    job.in_len = 4;
    job.out_buf = out.get();
    const auto state = std::make_unique<m4_enc_state>();
    state->start(4);
    m4_tokens<4> writer(job.in_buf, m4_symbol_writer(job, *state));
    EXPECT_FALSE(writer.full());
    writer.literal(1);
    EXPECT_FALSE(writer.full());
    writer.literal(2);
    EXPECT_TRUE(writer.full());
}

// What levels 0 to 7 find

TEST(m4_encoder, a_run_of_one_byte_value_is_one_match_of_the_start_of_the_block)
{
    const bytes block(60, 'a');
    for (u8 level = 0; level < hash_levels; ++level)
        EXPECT_EQ(encode(block, m4_parameters(level)),
                  test::m4_plain_stream(block, {{59, 1}}, 4, 0))
            << int{level};
}

TEST(m4_encoder, a_match_reaching_past_the_block_counts_those_bytes_and_the_decoder_stops)
{
    const bytes block = bytes_of("abcz\0\0\0defgggggggggggggggggggggz"sv);
    std::vector<plain_token> tokens(10, {1, 0});
    tokens.push_back({20, 1});
    std::vector<plain_token> not_passing = tokens;
    tokens.push_back({4, 28});
    not_passing.push_back({1, 0});
    for (u8 level = 0; level < hash_levels; ++level) {
        const codec_parameters parameters = m4_parameters(level, 16);
        const bytes stream = encode(block, parameters);
        EXPECT_EQ(stream, test::m4_plain_stream(block, level == 3 ? not_passing : tokens, 4, 0));
        EXPECT_EQ(test::decode(stream, block.size(), parameters), block) << int{level};
    }
}

TEST(m4_encoder, level_1_is_the_same_encoder_as_level_2_and_not_as_level_0)
{
    const bytes block = test::find_shape("text").make(20000, 1);
    EXPECT_EQ(encode(block, m4_parameters(1)), encode(block, m4_parameters(2)));
    EXPECT_NE(encode(block, m4_parameters(1)), encode(block, m4_parameters(0)));
}

// Levels 8 and 9

/// A byte, then another one all the time.
const bytes two_bytes = test::joined({{'-'}, bytes(41, 'a')});

TEST(m4_encoder, the_first_window_at_level_9_takes_as_many_matches_as_it_can)
{
    // All prices are negative: -40264 for a literal, -97608 for a match of any short length.
    std::vector<plain_token> tokens{{1, 0}};
    tokens.insert(tokens.end(), 20, {2, 1});
    EXPECT_EQ(encode(two_bytes, m4_parameters(9)), test::m4_plain_stream(two_bytes, tokens, 2, 0));
}

TEST(m4_encoder, the_first_window_at_level_8_takes_the_sum_that_wrapped_farther)
{
    // From the end: a literal that has no choice; one of -40264; the match of 3 bytes up to the
    // end, -97608, beats -80528; and then each literal, with what is behind it, beats a match,
    // which is charged alone.
    std::vector<plain_token> tokens(38, {1, 0});
    tokens.push_back({3, 1});
    EXPECT_EQ(encode(two_bytes, m4_parameters(8)), test::m4_plain_stream(two_bytes, tokens, 3, 0));
}

} // namespace
} // namespace quarnex
