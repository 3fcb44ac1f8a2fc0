#include "match/ladder.h"
#include "method2/m2_codec.h"
#include "method2/m2_tokens.h"

#include "plain/m2_plain.h"
#include "support/codec_runs.h"
#include "support/token_block.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::encode;
using test::joined;
using test::m2_plain_stream;
using test::parameters_of;
using test::plain_token;
using test::run_encoder;
using test::token_block;

constexpr u8 levels = ladder_levels;
constexpr u8 hash_levels = 8; // the first ones, which search by hash values

codec_parameters m2_parameters(u8 level, i32 hash_bits = 12, i32 chain_bits = 0)
{
    codec_parameters parameters = parameters_of(2, level);
    parameters.hash_bits = hash_bits;
    if (chain_bits != 0) parameters.chain_bits = chain_bits;
    return parameters;
}

/// Behind an 'a'.
token_block m2_block()
{
    return token_block({'a'});
}

/// The stream that the token writer makes of a block's tokens: none if it is of no use.
template <u32 MinMatch = 4>
bytes write_tokens(const token_block& block)
{
    const auto size = static_cast<u32>(block.data().size());
    const auto in = test::exact_buffer(size + in_slack);
    std::copy(block.data().begin(), block.data().end(), in.get());
    const auto out = test::exact_buffer(size + out_slack);
    codec_job job;
    job.in_buf = in.get();
    job.in_len = size;
    job.out_buf = out.get();
    m2_tokens<MinMatch> writer(job);
    u32 pos = writer.first_pos;
    for (const plain_token& token : block.tokens()) {
        token.dist == 0 ? writer.literal(pos) : writer.match(pos, token.len, token.dist);
        pos += token.len;
    }
    return {out.get(), out.get() + writer.finish()};
}

/// Expects the plain writer's stream of a block, behind which a match makes it worth one.
template <u32 MinMatch>
void expect_plain_stream(token_block block)
{
    block.match(5000, 1);
    const u32 level = MinMatch == 4 ? 7 : 8;
    EXPECT_TRUE(write_tokens<MinMatch>(block) ==
                m2_plain_stream(block.data(), block.tokens(), level));
}

// Blocks that are stored

TEST(m2_encoder, a_block_of_one_byte_is_stored)
{
    // Its stream would be the byte and the end token, 30.
    for (u8 level = 0; level < levels; ++level) {
        EXPECT_EQ(run_encoder({7}, m2_parameters(level)).result.length, 1U);
        EXPECT_EQ(encode({7}, m2_parameters(level)), bytes{7});
    }
}

TEST(m2_encoder, a_block_of_2_to_4_bytes_is_stored_and_one_of_5_can_be_a_match)
{
    // Of zeros all but the first are a match, which has 4 bytes at least.  010 00000 0000 is one of
    // four bytes from distance 1; the end is 0001111.  At level 3 nothing starts in the last four.
    const bytes stream{0, 0b01000000, 0b00000001, 0b11100000};
    for (u8 level = 0; level < hash_levels; ++level) {
        for (const usize size : {2U, 3U, 4U}) {
            EXPECT_EQ(run_encoder(bytes(size), m2_parameters(level)).result.length, size);
            EXPECT_EQ(encode(bytes(size), m2_parameters(level)), bytes(size));
        }
        EXPECT_EQ(encode(bytes(5), m2_parameters(level)), level == 3 ? bytes(5) : stream);
    }
}

TEST(m2_encoder, incompressible_data_come_out_as_an_exact_copy_of_the_block)
{
    for (usize size = 1; size <= 300; ++size) {
        const bytes block = test::find_shape("random").make(size, size);
        const auto run = run_encoder(block, m2_parameters(static_cast<u8>(size % levels)));
        EXPECT_EQ(run.result.length, size);
        EXPECT_EQ(run.out, block);
    }
}

TEST(m2_encoder, a_stream_as_long_as_the_block_is_stored)
{
    int stored = 0;
    for (u32 run = 1; run < 40; ++run) {
        const bytes block = joined({bytes_of("0123456789"), bytes(run, 'x')});
        const bytes stream =
            m2_plain_stream(block, test::plain_search(block, test::m2_rules, 0, 12, 1), 0);
        stored += stream.size() == block.size();
        EXPECT_EQ(encode(block, m2_parameters(0)), stream.size() < block.size() ? stream : block);
    }
    EXPECT_GT(stored, 0);
}

// Tokens

TEST(m2_tokens, by_hand)
{
    // Literals 'b' and 'c', six bytes from distance 3, the end:
    //     1 01100010 1 01100011 | 00100 00000 0010 | 0001111
    const token_block block = m2_block().literal('b').literal('c').match(6, 3);
    EXPECT_EQ(write_tokens(block),
              (bytes{'a', 0b10110001, 0b01011000, 0b11001000, 0b00000010, 0b00011110}));
    // Where the shortest match is 3, six bytes are 00101.
    EXPECT_EQ(write_tokens<3>(block),
              (bytes{'a', 0b10110001, 0b01011000, 0b11001010, 0b00000010, 0b00011110}));
}

TEST(m2_tokens, a_match_of_70000_bytes_has_a_code_of_33_bits)
{
    // 16 zeros and 70001; class 0, distance 1: 0; the end.
    const bytes stream{'a', 0, 0, 0b10001000, 0b10111000, 0b10000000, 0b00000111, 0b10000000};
    EXPECT_EQ(write_tokens(m2_block().match(70000, 1)), stream);
    EXPECT_EQ(write_tokens<3>(m2_block().match(70000, 1)), stream);
    for (u8 level = 0; level < hash_levels; ++level)
        EXPECT_EQ(encode(bytes(70001, 'a'), m2_parameters(level)), stream) << int{level};
}

template <u32 MinMatch>
void expect_plain_lengths()
{
    token_block block = m2_block().literal('b').literal('c');
    for (u32 len = MinMatch; len <= 300; ++len) block.match(len, 2).literal('d');
    for (u32 power = 9; power <= 21; ++power)
        for (u32 len = (1U << power) - 3; len <= (1U << power) + 1; ++len) block.match(len, 3);
    expect_plain_stream<MinMatch>(block);
}

TEST(m2_tokens, of_all_lengths_to_300_and_around_powers_of_two)
{
    expect_plain_lengths<3>();
    expect_plain_lengths<4>();
}

TEST(m2_tokens, of_each_distance_class_at_both_of_its_ends)
{
    token_block block = m2_block().match(1U << 25, 1);
    for (u32 dist_class = 0; dist_class < test::m2_plain_classes; ++dist_class) {
        const u32 first = test::m2_plain_first_dist(dist_class);
        block.match(5, first);
        if (first > 1) block.match(5, first - 1); // the last one of the class before
        block.match(5, first + 3);
    }
    block.match(5, m2_max_dist).literal('x').match(5, m2_max_dist - 1);
    expect_plain_stream<3>(block);
    expect_plain_stream<4>(block);
}

TEST(m2_tokens, of_long_codes_at_the_longest_distance)
{
    token_block block = m2_block().match(m2_max_dist, 1);
    for (u32 power = 4; power <= 17; ++power)
        for (u32 len = (1U << power) - 3; len <= (1U << power) + 1; ++len)
            block.match(len, m2_max_dist).literal('x');
    expect_plain_stream<3>(block);
    expect_plain_stream<4>(block);
}

TEST(m2_tokens, literals_in_rows_of_every_length)
{
    // Rows in front of a match, behind one, and at the block's end.
    for (u32 count = 0; count <= 40; ++count) {
        SCOPED_TRACE(count);
        for (const bool of_ones : {false, true}) {
            test::random_source random(count);
            token_block block = m2_block();
            for (int row = 0; row < 8; ++row) {
                for (u32 i = 0; i < count; ++i)
                    block.literal(of_ones ? u8{0xFF} : static_cast<u8>(random.next()));
                block.match(200, 1);
            }
            expect_plain_stream<4>(block);
            for (u32 i = 0; i < count; ++i) block.literal(static_cast<u8>(random.next()));
            EXPECT_EQ(write_tokens(block), m2_plain_stream(block.data(), block.tokens(), 0));
        }
    }
}

TEST(m2_tokens, are_written_as_the_plain_writer_writes_them)
{
    for (u64 seed = 1; seed <= 20; ++seed) {
        expect_plain_stream<4>(test::random_token_block(seed, 1, 4));
        expect_plain_stream<3>(test::random_token_block(seed, 1, 3));
    }
    expect_plain_stream<4>(test::random_token_block(21, 1, 4, 60000));
}

TEST(m2_tokens, are_full_once_the_whole_bytes_of_the_stream_are_as_many_as_the_block_has)
{
    // Each match has 12 bits: behind three of them five bytes are whole, behind four it is seven.
    const bytes block(6 + in_slack);
    const auto out = test::exact_buffer(6 + out_slack);
    codec_job job;
    job.in_buf = block.data();
    job.in_len = 6;
    job.out_buf = out.get();
    m2_tokens<4> writer(job);
    for (u32 pos = 1; pos < 17; pos += 4) {
        EXPECT_FALSE(writer.full()) << pos;
        writer.match(pos, 4, 1);
    }
    EXPECT_TRUE(writer.full());
    EXPECT_EQ(writer.finish(), 0U);
}

// What levels 0 to 7 find

/// Expects that a block becomes a stream of these tokens at a level, and is decoded from it.
void expect_tokens(const bytes& block, const std::vector<plain_token>& tokens,
                   const codec_parameters& parameters)
{
    const bytes stream = encode(block, parameters);
    EXPECT_TRUE(stream == m2_plain_stream(block, tokens, parameters.level))
        << "level " << int{parameters.level};
    EXPECT_TRUE(test::decode(stream, block.size(), parameters) == block);
}

constexpr plain_token one_literal{1, 0};

/// Tokens behind some literals.
std::vector<plain_token> behind_literals(usize count, std::initializer_list<plain_token> tokens)
{
    std::vector<plain_token> all(count, one_literal);
    all.insert(all.end(), tokens);
    return all;
}
TEST(m2_encoder, all_bytes_equal_are_one_match_at_distance_1_up_to_the_blocks_end)
{
    for (u8 level = 0; level < hash_levels; ++level)
        expect_tokens(bytes(1000, 'z'), {{999, 1}}, m2_parameters(level));
}

TEST(m2_encoder, the_default_tables_of_levels_3_and_7_serve_a_small_block)
{
    for (const u8 level : {u8{3}, u8{7}})
        expect_tokens(bytes(1000, 'z'), {{999, 1}}, parameters_of(2, level));
}

TEST(m2_encoder, the_start_of_the_block_is_a_candidate_though_it_is_never_entered)
{
    const bytes block = bytes_of("abcdefgh1abcdefgh!");
    for (u8 level = 0; level < hash_levels; ++level)
        expect_tokens(block, behind_literals(8, {{8, 9}, one_literal}), m2_parameters(level, 16));
}

TEST(m2_encoder, the_start_of_the_block_is_no_candidate_where_its_bytes_differ)
{
    // None of the first bytes comes again.
    bytes block(100);
    for (usize i = 0; i < block.size(); ++i) block[i] = static_cast<u8>(i);
    block.insert(block.end(), 100, 99);
    for (u8 level = 0; level < hash_levels; ++level)
        expect_tokens(block, behind_literals(99, {{100, 1}}), m2_parameters(level, 16));
}

TEST(m2_encoder, a_match_in_the_last_bytes_passes_the_end_by_3_except_at_level_3)
{
    // The "z" at the end stands like an earlier one in front of three zeros, if those behind the
    // block count; at level 3 the last four bytes are literals.
    const bytes block = bytes_of("abcz\0\0\0defgggggggggggggggggggggz"sv);
    for (u8 level = 0; level < hash_levels; ++level)
        expect_tokens(block,
                      behind_literals(10, {{20, 1}, level == 3 ? one_literal : plain_token{4, 28}}),
                      m2_parameters(level, 16));
}

TEST(m2_encoder, at_level_3_the_last_four_bytes_are_literals_and_the_fifth_last_can_match)
{
    const bytes block = joined({bytes_of("abcde-"), bytes(25, 'g'), bytes_of("abcd")});
    auto literals = behind_literals(6, {{24, 1}});
    literals.insert(literals.end(), 4, one_literal);
    for (u8 level = 0; level < hash_levels; ++level)
        expect_tokens(block, level == 3 ? literals : behind_literals(6, {{24, 1}, {4, 31}}),
                      m2_parameters(level, 16));
    expect_tokens(joined({block, {'e'}}), behind_literals(6, {{24, 1}, {5, 31}}),
                  m2_parameters(3, 16));
}

TEST(m2_encoder, a_look_ahead_candidate_that_is_the_position_does_not_reach_back_to_it)
{
    // The match of "wxyz" and two zeros ends at 13; level 2 has entered 11 there, behind 12.  So at
    // 13 it finds a match at distance 2.  The candidate of 14 is 13, in front of which a zero
    // stands as at 13; extended back, the match at distance 1 would be as long and nearer.
    const bytes block = bytes_of("wxyz\0\0Bwxyz\0\0\0\0\0\0\0\0"sv);
    expect_tokens(block, behind_literals(6, {{6, 7}, {6, 2}}), m2_parameters(2, 16));
    // Elsewhere 12 is the first candidate, or the better one.
    for (const u8 level : {u8{1}, u8{3}, u8{4}, u8{7}})
        expect_tokens(block, behind_literals(6, {{6, 7}, {6, 1}}), m2_parameters(level, 16));
}

TEST(m2_encoder, at_levels_4_to_7_a_block_of_16_mib_is_searched_to_its_highest_position)
{
    // That is a "z", and behind the block there are zeros.
    constexpr u32 size = 16 << 20;
    const bytes end = bytes_of("z\0\0\0Wz"sv);
    bytes block(size);
    block[0] = 'x';
    std::copy(end.begin(), end.end(), block.end() - 6);
    auto tokens = behind_literals(1, {{size - 8, 1}});
    tokens.insert(tokens.end(), 5, one_literal);
    tokens.push_back({4, 5});
    for (u8 level = 4; level < hash_levels; ++level)
        expect_tokens(block, tokens, m2_parameters(level, 16));
}

// Distances

/// A block whose `end` lies where the longest distance leads to its `start`, or one byte behind
/// that; between them are zeros.
struct far_case {
    bytes start;
    std::vector<plain_token> start_tokens; // behind the first byte
    bytes end;
    std::vector<plain_token> taken; // for the end
    std::vector<plain_token> out_of_reach;

    std::vector<plain_token> tokens(u32 far) const
    {
        std::vector<plain_token> all = start_tokens;
        all.push_back(one_literal);
        all.push_back({far - static_cast<u32>(start.size()) - 1, 1});
        const auto& rest = far == m2_max_dist ? taken : out_of_reach;
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    }

    /// Expects these tokens from `first_level` on.  Rings hold two candidates.
    void expect(u8 first_level) const
    {
        for (const u32 far : {m2_max_dist, m2_max_dist + 1}) {
            const bytes block = joined({start, bytes(far - start.size()), end, bytes(in_slack)});
            codec_job job;
            job.in_buf = block.data();
            job.in_len = static_cast<u32>(block.size() - in_slack);
            const auto out = std::make_unique_for_overwrite<u8[]>(job.in_len + out_slack);
            job.out_buf = out.get();
            scratch memory(system_allocator);
            job.memory = &memory;
            for (u8 level = first_level; level < hash_levels; ++level) {
                job.parameters = m2_parameters(level, 16, 1);
                const u32 length = m2_encoder.run(job, nullptr).length;
                ASSERT_GT(length, 0U);
                EXPECT_EQ(bytes(out.get(), out.get() + length),
                          m2_plain_stream(block, tokens(far), level))
                    << far << " bytes, level " << int{level};
            }
        }
    }
};

/// Where the end is when it is out of reach.
constexpr u32 too_far = m2_max_dist + 1;

std::vector<plain_token> match_and_literals(plain_token match, usize count)
{
    std::vector<plain_token> tokens{match};
    tokens.insert(tokens.end(), count, one_literal);
    return tokens;
}

TEST(m2_encoder, a_candidate_counts_up_to_the_longest_distance)
{
    const far_case known{bytes_of("abcdef"),
                         behind_literals(5, {}),
                         bytes_of("abcdefG"),
                         {{6, m2_max_dist}, one_literal},
                         behind_literals(7, {})};
    known.expect(0);
}

TEST(m2_encoder, a_candidate_of_the_next_position_is_worth_a_literal_up_to_the_longest_distance)
{
    // "Xabc" comes from 11, all behind it from 1.
    const far_case known{bytes_of("-abcdefghijXabcY"),
                         behind_literals(15, {}),
                         bytes_of("XabcdefghijZ"),
                         {one_literal, {10, m2_max_dist}, one_literal},
                         match_and_literals({4, too_far - 11}, 8)};
    known.expect(2);
}

TEST(m2_encoder, a_candidate_of_the_next_position_replaces_a_match_up_to_the_longest_distance)
{
    // The latest two of "Xabc" are those at 11 and 16; "abcd" is at 1, behind an "X".
    const far_case known{bytes_of("XabcdefghijXabcYXabcW"),
                         behind_literals(10, {{4, 11}, one_literal, {4, 5}, one_literal}),
                         bytes_of("XabcdefghijZ"),
                         {{11, m2_max_dist}, one_literal},
                         match_and_literals({4, too_far - 16}, 8)};
    known.expect(2);
}

TEST(m2_encoder, a_candidate_two_ahead_is_worth_a_literal_up_to_the_longest_distance)
{
    // "XYab" comes from 12, "Yabc" from nowhere, all behind it from 2.
    const far_case known{bytes_of("--abcdefghijXYabN"),
                         behind_literals(16, {}),
                         bytes_of("XYabcdefghijZ"),
                         {one_literal, one_literal, {10, m2_max_dist}, one_literal},
                         match_and_literals({4, too_far - 12}, 9)};
    known.expect(3);
}

TEST(m2_encoder, a_candidate_two_ahead_replaces_a_match_up_to_the_longest_distance)
{
    // The latest two of "XYab" and of "Yabc" have no "d" behind the "c"; "abcd" is at 2.
    const far_case known{bytes_of("XYabcdefghijXYabc1XYabc2"),
                         behind_literals(11, {{5, 12}, one_literal, {5, 6}, one_literal}),
                         bytes_of("XYabcdefghijZ"),
                         {{12, m2_max_dist}, one_literal},
                         match_and_literals({5, too_far - 18}, 8)};
    known.expect(3);
}

// All shapes

} // namespace
} // namespace quarnex
