#include "match/hash_search.h"

#include "plain/plain_search.h"
#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::plain_token;

/// A token writer that keeps what the search decides; `full_at` tokens fill it.
struct token_recorder {
    static constexpr u32 first_pos = 1;
    std::vector<plain_token> tokens;
    usize full_at = SIZE_MAX;
    u32 next_pos = first_pos;

    bool full() const { return tokens.size() >= full_at; }
    void literal(u32 pos)
    {
        EXPECT_EQ(pos, next_pos++);
        tokens.push_back({1, 0});
    }
    void match(u32 pos, u32 len, u32 dist)
    {
        EXPECT_EQ(pos, next_pos);
        next_pos += len;
        tokens.push_back({len, dist});
    }
};
static_assert(token_writer<token_recorder>);

token_recorder search(const bytes& block, u32 level, u32 hash_bits, usize full_at = SIZE_MAX)
{
    bytes padded = block;
    padded.resize(block.size() + search_reads_past);
    const block_text text{padded.data(), static_cast<u32>(block.size())};
    fast_hash_table table(hash_bits);
    token_recorder recorder{{}, full_at};
    if (level == 0) return search_greedy<inserts::nothing>(text, table, recorder);
    if (level == 1) return search_greedy<inserts::inside_match>(text, table, recorder);
    return search_lazy(text, table, recorder);
}

bytes text(const std::string& characters)
{
    return {characters.begin(), characters.end()};
}

const plain_token literal{1, 0};

TEST(hash_search, finds_nothing_in_different_bytes)
{
    EXPECT_EQ(search(text("abcdefgh"), 0, 12).tokens, std::vector<plain_token>(7, literal));
}

TEST(hash_search, takes_position_0_as_a_candidate)
{
    // "abcd" at 4 finds the block's first bytes, which are never entered: the table starts with
    // them.
    const std::vector<plain_token> expected{literal, literal, literal, {4, 4}};
    EXPECT_EQ(search(text("abcdabcd"), 0, 12).tokens, expected);
}

TEST(hash_search, a_run_is_one_match_at_distance_1)
{
    EXPECT_EQ(search(bytes(1000), 0, 12).tokens, (std::vector<plain_token>{{999, 1}}));
}

TEST(hash_search, a_match_is_cut_at_the_end_beyond_its_fourth_byte)
{
    // The zeros behind the block would go on the match; only the first four bytes may take them.
    const bytes block = text(std::string("ab\0\0\0\0\0\0xyab\0\0", 14));
    EXPECT_EQ(search(block, 0, 12).tokens.back(), (plain_token{4, 10}));
}

TEST(hash_search, a_match_in_the_last_three_positions_passes_the_end)
{
    // "z" and three zeros stand at 3; the last byte is a "z" with zeros behind the block.
    const bytes block = text(std::string("abcz\0\0\0defz", 11));
    EXPECT_EQ(search(block, 0, 12).tokens.back(), (plain_token{4, 7}));
}

TEST(hash_search, level_1_enters_positions_inside_a_match)
{
    // Behind "abcdefgh" + "abcdefgh" comes "bcdef": level 1 knows it from the second copy, where
    // the match's second position was entered, level 0 from the first.
    const bytes block = text("abcdefghabcdefghbcdefX");
    EXPECT_EQ(search(block, 0, 16).tokens[8], (plain_token{5, 15}));
    EXPECT_EQ(search(block, 1, 16).tokens[8], (plain_token{5, 7}));
}

TEST(hash_search, level_1_enters_the_last_position_of_a_match)
{
    const bytes block = text("abcdefgh--abcdefghij++hij+");
    const auto tokens = search(block, 1, 16).tokens;
    EXPECT_EQ(tokens.back(), (plain_token{4, 5})); // "hij+": 17 was entered with "hij+" ahead of it
}

TEST(lazy_search, a_longer_match_behind_a_literal_wins)
{
    // At "a" "abcd" gives 4 bytes; one later "bcdefgh" gives 7.
    const bytes block = text("abcdXbcdefghYabcdefghZ");
    const auto tokens = search(block, 2, 16).tokens;
    // 12 literals up to Y, then the literal "a" and the match of "bcdefgh" at distance 9.
    EXPECT_EQ(tokens, [] {
        std::vector<plain_token> expected(13, literal);
        expected[3] = literal;
        expected.push_back({7, 9});
        expected.push_back(literal);
        return expected;
    }());
}

TEST(lazy_search, a_candidate_of_the_next_position_is_extended_backwards)
{
    // The hash slot of "abcd" holds the nearer, shorter occurrence; the slot of "bcde" leads to the
    // older one, which agrees at "a" too and is longer by two: it replaces the match at "a".
    const bytes block = text("abcdefgh1abcd2abcdefgh3");
    const auto tokens = search(block, 2, 16).tokens;
    const plain_token replaced{8, 14};
    EXPECT_NE(std::find(tokens.begin(), tokens.end(), replaced), tokens.end());
}

TEST(hash_search, stops_when_the_writer_is_full)
{
    EXPECT_EQ(search(text("abcdefghijklmnop"), 0, 12, 5).tokens.size(), 5U);
    EXPECT_EQ(search(text("abcdefghijklmnop"), 2, 12, 5).tokens.size(), 5U);
}

class hash_search_property : public testing::TestWithParam<u32> {};

TEST_P(hash_search_property, decides_as_the_plain_search_does)
{
    for (const auto& shape : test::all_shapes()) {
        for (const usize size :
             {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 31U, 100U, 300U, 5000U, 70000U}) {
            for (const u32 hash_bits : {10U, 16U}) {
                const bytes block = shape.make(size, size + hash_bits);
                EXPECT_EQ(search(block, GetParam(), hash_bits).tokens,
                          test::plain_search(block, test::m1_rules, GetParam(), hash_bits, 1))
                    << shape.name << " of " << size << " bytes";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(levels, hash_search_property, testing::Values(0U, 1U, 2U));

} // namespace
} // namespace quarnex
