#include "match/ladder.h"
#include "method3/m3_codec.h"
#include "method3/m3_tokens.h"

#include "method3/m3_streams.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::encode;
using test::m3_bits;
using test::m3_block;
using test::parameters_of;
using test::plain_token;
using test::run_encoder;

constexpr u8 levels = ladder_levels;
constexpr u8 hash_levels = 8; // the first ones, which search by hash values

codec_parameters m3_parameters(u8 level, i32 hash_bits = 12, i32 chain_bits = 0)
{
    codec_parameters parameters = parameters_of(3, level);
    parameters.hash_bits = hash_bits;
    if (chain_bits != 0) parameters.chain_bits = chain_bits;
    return parameters;
}

/// The stream that the token writer makes of a block's tokens: none if it is of no use.
template <u32 MinMatch = 4>
bytes write_tokens(const m3_block& block)
{
    const usize size = block.data().size();
    const auto out = test::exact_buffer(size + out_slack);
    codec_job job;
    job.in_buf = block.data().data();
    job.in_len = static_cast<u32>(size);
    job.out_buf = out.get();
    const auto models = std::make_unique<m3_encoder_models>(job.in_len);
    m3_tokens<MinMatch> writer(job.in_buf, m3_symbol_writer(job, *models));
    u32 pos = writer.first_pos;
    for (const plain_token& token : block.tokens()) {
        token.dist == 0 ? writer.literal(pos) : writer.match(pos, token.len, token.dist);
        pos += token.len;
    }
    return {out.get(), out.get() + writer.finish()};
}

// Blocks that are stored

TEST(m3_encoder, a_one_byte_block_goes_out_raw_with_the_same_byte)
{
    EXPECT_EQ(write_tokens(m3_block()), bytes{'a'});
    for (u8 level = 0; level < levels; ++level) {
        EXPECT_EQ(run_encoder({7}, m3_parameters(level)).result.length, 1U);
        EXPECT_EQ(encode({7}, m3_parameters(level)), bytes{7});
    }
}

TEST(m3_encoder, a_stream_as_long_as_the_block_is_stored)
{
    int stored = 0;
    for (u32 run = 1; run < 40; ++run) {
        bytes block = bytes_of("0123456789");
        block.insert(block.end(), run, 'x');
        const bytes stream =
            test::m3_plain_stream(block, test::plain_search(block, test::m3_rules, 0, 12, 1), 4);
        stored += stream.size() == block.size();
        EXPECT_EQ(encode(block, m3_parameters(0)), stream.size() < block.size() ? stream : block);
    }
    EXPECT_GT(stored, 0);
}

// Tokens: up to 16 symbols of a model, its codes are those of the start.  Of 17 slots, 16 and 15
// have the codes 00000 and 00001, and slots 14 to 0 have 0001 to 1111.

TEST(m3_tokens, literals_by_hand)
{
    // 'b' is 255 - 98 = 10011101, 255 is 287 - 255 = 32 of 9 bits.
    EXPECT_EQ(write_tokens(m3_block().literal('b').literal(255)), m3_bits("10011101 000100000"));
}

TEST(m3_tokens, matches_by_hand)
{
    EXPECT_EQ(write_tokens(m3_block().match(4, 1)), m3_bits("000011111 1111"));
    EXPECT_EQ(write_tokens<3>(m3_block().match(3, 1)), m3_bits("000011111 1111"));
    EXPECT_EQ(write_tokens<2>(m3_block().match(2, 1)), m3_bits("000011111 1111"));
    EXPECT_EQ(write_tokens(m3_block().match(34, 1)), m3_bits("000000001 1111"));
    EXPECT_EQ(write_tokens(m3_block().match(35, 1)), m3_bits("000000000 1111 1111"));
    EXPECT_EQ(write_tokens(m3_block().match(40, 1)), m3_bits("000000000 1011 1 1111"));
    EXPECT_EQ(write_tokens(m3_block().match(0x60000, 1).match(4, 0x55556)),
              m3_bits("000000000 000001 11111111111011101 11111"
                      "000011111 000001 10101010101010101"));
}

TEST(m3_tokens, are_written_as_the_plain_writer_writes_them)
{
    for (u64 seed = 1; seed <= 20; ++seed) {
        const m3_block block = test::random_token_block(seed, 1, 4);
        EXPECT_TRUE(write_tokens(block) == block.stream()) << seed;
        const m3_block shorter = test::random_token_block(seed, 1, 2);
        EXPECT_TRUE(write_tokens<2>(shorter) == shorter.stream(2)) << seed;
    }
    const m3_block longer = test::random_token_block(21, 1, 4, 60000);
    EXPECT_TRUE(write_tokens(longer) == longer.stream());
}

TEST(m3_tokens, with_codes_of_30_bits_are_a_stream)
{
    m3_block block =
        test::block_of_distance_slots(test::symbols_of_long_codes(test::groups_of_30_bits));
    for (u32 slot = 4; slot < 52; ++slot) block.match(4, ((2 + slot % 2) << (slot / 2 - 1)) + 1);
    block.match(test::long_code_block - static_cast<u32>(block.data().size()), 70);
    EXPECT_EQ(write_tokens(block), block.stream());
}

TEST(m3_tokens, with_a_code_of_31_bits_are_of_no_use_and_one_symbol_before_it_they_are)
{
    std::vector<u32> symbols = test::symbols_of_long_codes(test::groups_of_31_bits);
    const auto stream = [&] {
        m3_block block = test::block_of_distance_slots(symbols);
        block.match(test::long_code_block - static_cast<u32>(block.data().size()), 1);
        return write_tokens(block);
    };
    EXPECT_TRUE(stream().empty());
    symbols.resize(symbols.size() - 2); // the match to the block's end is one more
    EXPECT_FALSE(stream().empty());
    symbols.push_back(0);
    EXPECT_TRUE(stream().empty());
}

TEST(m3_tokens, are_full_once_the_whole_bytes_of_the_stream_are_as_many_as_the_block_has)
{
    const bytes block(4, 255); // each 9 bits
    const auto out = test::exact_buffer(block.size() + out_slack);
    codec_job job;
    job.in_buf = block.data();
    job.in_len = 4;
    job.out_buf = out.get();
    m3_encoder_models models(4);
    m3_tokens<4> writer(job.in_buf, m3_symbol_writer(job, models));
    for (u32 pos = 1; pos < 4; ++pos) {
        EXPECT_FALSE(writer.full()) << pos;
        writer.literal(pos);
    }
    EXPECT_TRUE(writer.full());
}

// What levels 0 to 7 find

TEST(m3_encoder, a_run_of_one_byte_value_is_one_match_of_the_start_of_the_block)
{
    // Position 0 is what every table starts with, and the rings find p - 1 extended to p itself:
    // 39 bytes at distance 1, that is 287, 4 above 35 as slot 4 and a bit, slot 0.
    const bytes expected = m3_bits("000000000 1011 0 1111");
    for (u8 level = 0; level < hash_levels; ++level)
        EXPECT_EQ(encode(bytes(40, 'a'), m3_parameters(level)), expected) << int{level};
}

TEST(m3_encoder, the_start_of_the_block_is_no_candidate_where_its_bytes_differ)
{
    // None of the first bytes comes again.
    bytes block(100);
    for (usize i = 0; i < block.size(); ++i) block[i] = static_cast<u8>(i);
    block.insert(block.end(), 100, 99);
    std::vector<plain_token> tokens(99, {1, 0});
    tokens.push_back({100, 1});
    for (u8 level = 0; level < hash_levels; ++level)
        EXPECT_EQ(encode(block, m3_parameters(level, 16)), test::m3_plain_stream(block, tokens, 4));
}

TEST(m3_encoder, a_match_reaching_past_the_block_counts_those_bytes_and_the_decoder_stops)
{
    // The "z" at the end stands like an earlier one in front of three zeros, if those behind the
    // block count; at level 3 nothing in the last four bytes is looked for.
    const bytes block = bytes_of("abcz\0\0\0defgggggggggggggggggggggz"sv);
    std::vector<plain_token> tokens(10, {1, 0});
    tokens.push_back({20, 1});
    std::vector<plain_token> not_passing = tokens;
    tokens.push_back({4, 28});
    not_passing.push_back({1, 0});
    for (u8 level = 0; level < hash_levels; ++level) {
        const codec_parameters parameters = m3_parameters(level, 16);
        const bytes stream = encode(block, parameters);
        EXPECT_EQ(stream, test::m3_plain_stream(block, level == 3 ? not_passing : tokens, 4));
        EXPECT_EQ(test::decode(stream, block.size(), parameters), block) << int{level};
    }
}

TEST(m3_encoder, at_levels_4_to_7_a_match_of_exactly_4_bytes_inserts_its_end_less_1_only)
{
    // With two candidates for each hash value: "wxyz" inside the match of "12wx" is the second one,
    // behind that at 1.  If it came twice, the one at 1 would be lost.
    const bytes block = bytes_of("0wxyz-ABCDEFGH12wxQ12wxyz+wxyz-ABCDEFGH");
    std::vector<plain_token> tokens(18, {1, 0});
    tokens.insert(tokens.end(), {{4, 5}, {1, 0}, {1, 0}, {1, 0}, {13, 25}});
    for (u8 level = 4; level < hash_levels; ++level)
        EXPECT_EQ(encode(block, m3_parameters(level, 18, 1)),
                  test::m3_plain_stream(block, tokens, 4));
}

// Levels 8 and 9

TEST(m3_encoder, a_block_of_one_byte_value_at_level_8_is_matches_of_255_bytes_at_distance_1)
{
    EXPECT_EQ(encode(bytes(500, 'a'), m3_parameters(8)),
              test::m3_plain_stream(bytes(500, 'a'), {{255, 1}, {244, 1}}, 3));
}

TEST(m3_encoder, a_block_of_one_byte_value_at_level_9_is_a_literal_and_matches_as_long_as_they_fit)
{
    EXPECT_EQ(encode(bytes(500, 'a'), m3_parameters(9)),
              test::m3_plain_stream(bytes(500, 'a'), {{1, 0}, {498, 1}}, 2));
    // The match of the first window goes to 2561, that of the second one 1024 + 2048 bytes on, at
    // the distance of the last position that was entered.
    EXPECT_EQ(
        encode(bytes(6000, 'a'), m3_parameters(9)),
        test::m3_plain_stream(bytes(6000, 'a'), {{1, 0}, {2559, 1}, {3072, 2049}, {367, 2049}}, 2));
}

TEST(m3_encoder, a_match_of_2_bytes_is_found_at_level_9_only)
{
    const bytes block = bytes_of("-ab1ab2" + std::string(40, 'z'));
    std::vector<plain_token> tokens(7, {1, 0});
    tokens.push_back({39, 1});
    EXPECT_EQ(encode(block, m3_parameters(8)), test::m3_plain_stream(block, tokens, 3));
    tokens.erase(tokens.begin());
    tokens[3] = {2, 3};
    EXPECT_EQ(encode(block, m3_parameters(9)), test::m3_plain_stream(block, tokens, 2));
}

} // namespace
} // namespace quarnex
