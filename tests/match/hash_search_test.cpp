#include "match/hash_search.h"

#include "match/hash_search_fixture.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::each_hash_search;
using test::literals;
using test::plain_token;
using test::searches;
using test::spelled_out;
using test::tokens_of;

std::vector<plain_token> search(u32 level, const bytes& block)
{
    return tokens_of(searches<1>[level], block, { 16, 0 });
}

TEST(hash_search, finds_nothing_in_different_bytes)
{
    EXPECT_EQ(search(0, bytes_of("abcdefgh")), spelled_out({literals(7)}));
}

TEST(hash_search, takes_position_0_as_a_candidate)
{
    // "abcd" at 4 finds the block's first bytes, which are never inserted: all entries start as
    // position 0.
    EXPECT_EQ(search(0, bytes_of("abcdabcd")), spelled_out({literals(3), {4, 4}}));
}

TEST(hash_search, a_run_is_one_match_at_distance_1)
{
    for (const u32 level : {0U, 1U, 2U})
        EXPECT_EQ(search(level, bytes(1000)), spelled_out({{999, 1}}));
}

TEST(hash_search, a_match_is_cut_at_the_end_beyond_its_fourth_byte)
{
    // "ab" and two zeros at 10 equal the start.  So do the following zeros, but these are past the
    // block.
    const bytes block = bytes_of("ab\0\0\0\0\0\0xyab\0\0"sv);
    EXPECT_EQ(search(0, block).back(), (plain_token{4, 10}));
}

TEST(hash_search, a_match_in_the_last_position_extends_3_bytes_past_the_end)
{
    // "z" and three zeros are at 3; the last byte, at 10, is "z", followed by the zeros past the
    // block.
    const bytes block = bytes_of("abcz\0\0\0defz"sv);
    for (const u32 level : {0U, 1U, 2U})
        EXPECT_EQ(search(level, block), spelled_out({literals(9), {4, 7}}));
}

TEST(hash_search, level_0_inserts_only_the_first_position_of_a_match)
{
    // "bcdef" at 16 is found at 1, not at 9, inside the match at 8.
    const bytes block = bytes_of("abcdefghabcdefghbcdefX");
    EXPECT_EQ(search(0, block), spelled_out({literals(7), {8, 8}, {5, 15}, literals(1)}));
}

TEST(hash_search, level_1_inserts_the_second_and_the_third_position_of_a_match)
{
    // After the match at 8 "bcdef" is found at 9.
    const bytes second = bytes_of("abcdefghabcdefghbcdefX");
    EXPECT_EQ(search(1, second), spelled_out({literals(7), {8, 8}, {5, 7}, literals(1)}));
    // "cdef" is found at 10; "def" at 11 was not inserted, so the one at 3 is found.
    const bytes third = bytes_of("abcdefghabcdefghcdefXdefghY");
    EXPECT_EQ(search(1, third),
              spelled_out({literals(7), {8, 8}, {4, 6}, literals(1), {5, 18}, literals(1)}));
}

TEST(hash_search, level_1_inserts_the_last_position_of_a_match)
{
    // The match of "abcdefgh" at 10 ends with the "h" at 17, before "ij+".  "hij+" occurs again at
    // 23: level 1 finds it at 17, level 0 does not.
    const bytes block = bytes_of("abcdefgh--abcdefghij+++hij+");
    EXPECT_EQ(search(1, block), spelled_out({literals(9), {8, 10}, literals(5), {4, 6}}));
    EXPECT_EQ(search(0, block), spelled_out({literals(9), {8, 10}, literals(9)}));
}

TEST(lazy_search, a_longer_match_after_a_literal_wins)
{
    // At 13 "abcd" gives 4 bytes at distance 13; one later "bcdefgh" gives 7.
    const bytes block = bytes_of("abcdXbcdefghYabcdefghZ");
    EXPECT_EQ(search(2, block), spelled_out({literals(13), {7, 9}, literals(1)}));
}

TEST(lazy_search, a_candidate_of_the_next_position_replaces_the_match_if_it_extends_back)
{
    // At 14 the entry of "abcd" is 9, a match of 4.  The entry of "bcde" still is 1, where 7 bytes
    // match, and the byte before it is an "a" too.
    const bytes block = bytes_of("abcdefgh1abcd2abcdefgh3");
    EXPECT_EQ(search(2, block),
              spelled_out({literals(8), {4, 9}, literals(1), {8, 14}, literals(1)}));
}

TEST(lazy_search, a_replaced_match_extends_4_bytes_past_the_end)
{
    // "z" and four zeros are at 2.  The last byte, at 10, is "z": 4 bytes from 2.  At the next
    // position, past the block, the four zeros at 3 match, with "z" before them: 5 bytes.
    const bytes block = bytes_of("abz\0\0\0\0defz"sv);
    EXPECT_EQ(search(2, block), spelled_out({literals(9), {5, 8}}));
}

TEST(lazy_search, the_position_itself_is_not_extended_back)
{
    // At 2 the entry of four zeros is 0, at distance 2; at the next position it is 2, with a zero
    // before it too.  The match at distance 1 would be as long and nearer.
    EXPECT_EQ(tokens_of(searches<2>[2], bytes(1000), { 16, 0 }), spelled_out({{998, 2}}));
}

TEST(lazy_search, inserts_the_second_and_the_third_position_of_a_match)
{
    // The match at 8 inserts 9, "bcde", and 10, "cdef"; at 17 each of them is nearer than the
    // first.
    EXPECT_EQ(search(2, bytes_of("abcdefghabcdefgh-bcdefX")),
              spelled_out({literals(7), {8, 8}, literals(1), {5, 8}, literals(1)}));
    EXPECT_EQ(search(2, bytes_of("abcdefghabcdefgh-cdefX")),
              spelled_out({literals(7), {8, 8}, literals(1), {4, 7}, literals(1)}));
}

TEST(lazy_search, inserts_the_last_two_positions_of_a_match)
{
    // The match of "abcdefgh" at 10 ends with "gh" at 16, before "ij".
    const bytes last = bytes_of("abcdefgh--abcdefghijk+hijkX");
    EXPECT_EQ(search(2, last),
              spelled_out({literals(9), {8, 10}, literals(4), {4, 5}, literals(1)}));
    const bytes last_but_one = bytes_of("abcdefgh--abcdefghijk+ghijX");
    EXPECT_EQ(search(2, last_but_one),
              spelled_out({literals(9), {8, 10}, literals(4), {4, 6}, literals(1)}));
}

TEST_P(each_hash_search, stops_when_the_writer_is_full)
{
    const auto tokens = tokens_of(
        searches<1>[GetParam()], bytes_of("abcdefghijkl"), { 12, 0 }, 5);
    EXPECT_EQ(tokens, spelled_out({literals(5)}));
}

template <u32 FirstPos>
void expect_plain_tokens(u32 level, const bytes& block, u32 hash_bits)
{
    const test::plain_rules rules{FirstPos, false, false, 0};
    EXPECT_TRUE(tokens_of(searches<FirstPos>[level], block, { static_cast<i32>(hash_bits), 0 }) ==
                test::plain_search(block, rules, level, hash_bits, 0))
        << block.size() << " bytes, " << hash_bits << " hash bits, from " << FirstPos;
}

TEST_P(each_hash_search, equals_the_plain_search)
{
    for (const auto& shape : test::all_shapes()) {
        SCOPED_TRACE(shape.name);
        for (usize size = 0; size <= 300; ++size) {
            expect_plain_tokens<1>(GetParam(), shape.make(size, size), 10);
            expect_plain_tokens<2>(GetParam(), shape.make(size, size + 1), 5);
        }
        for (const usize size : {65536U, 300001U}) {
            expect_plain_tokens<1>(GetParam(), shape.make(size, size), 16);
            expect_plain_tokens<2>(GetParam(), shape.make(size, size + 1), 10);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(levels, each_hash_search, testing::Values(0U, 1U, 2U));

TEST_P(each_hash_search, returns_nothing_without_memory_for_its_table)
{
    const bytes block(100);
    test::limited_allocator limit;
    limit.refuse_from(1 << 20);
    scratch memory(limit.get());
    EXPECT_FALSE(searches<1>[GetParam()]({block.data(), 50}, {28, 0}, memory, {}).has_value());
}

} // namespace
} // namespace quarnex
