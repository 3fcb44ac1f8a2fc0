#include "match/found_match.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;

/// A block between bytes chosen by a test and zeros.
class framed_block {
  public:
    explicit framed_block(std::string_view block, std::string_view prefix = "")
        : bytes_(bytes_of(prefix)), start_(prefix.size()), size_(static_cast<u32>(block.size()))
    {
        bytes_.insert(bytes_.end(), block.begin(), block.end());
        bytes_.resize(bytes_.size() + search_reads_past);
    }
    operator block_text() const { return {bytes_.data() + start_, size_}; }

  private:
    bytes bytes_;
    usize start_;
    u32 size_;
};

TEST(extends_back, if_the_bytes_before_the_candidate_are_those_at_the_position)
{
    const framed_block block("abcdef-abcdef");
    EXPECT_TRUE(extends_back<1>(block, 7, 1));  // "a" before 1, "a" at 7
    EXPECT_FALSE(extends_back<1>(block, 6, 1)); // "-" at 6
    EXPECT_TRUE(extends_back<2>(block, 7, 2));  // "ab"
    EXPECT_FALSE(extends_back<2>(block, 6, 2)); // "ab" and "-a"
}

TEST(extends_back, only_if_both_of_two_bytes_agree)
{
    const framed_block block("abcdef-xbcdef-axcdef");
    EXPECT_FALSE(extends_back<2>(block, 7, 2));  // "ab" and "xb"
    EXPECT_FALSE(extends_back<2>(block, 14, 2)); // "ab" and "ax"
}

TEST(extends_back, not_from_the_position_itself)
{
    const framed_block run("aaaaaaaa");
    EXPECT_FALSE(extends_back<1>(run, 3, 3));
    EXPECT_FALSE(extends_back<2>(run, 3, 3));
    EXPECT_TRUE(extends_back<1>(run, 3, 2));
    EXPECT_TRUE(extends_back<2>(run, 3, 2));
}

TEST(extends_back, not_into_bytes_before_the_block_even_if_they_agree)
{
    const framed_block block("abcdef-yxabcdef", "yx"); // "xa" at 8, "yx" at 7
    EXPECT_FALSE(extends_back<1>(block, 8, 0));
    EXPECT_FALSE(extends_back<2>(block, 7, 0));
    EXPECT_FALSE(extends_back<2>(block, 8, 1)); // only one of the two is before the block
    EXPECT_TRUE(extends_back<1>(block, 9, 1));
}

struct verdict {
    bool literal;
    u32 len;
    u32 dist;
    bool operator==(const verdict&) const = default;
};

template <u32 Ahead>
verdict verdict_on(const block_text& text, u32 pos, u32 cand, found_match best)
{
    const lookahead_result result = compare_lookahead<Ahead>(text, pos, cand, best);
    return {result.literal, result.best.len, result.best.dist};
}

TEST(lookahead_by_1, a_candidate_that_extends_back_replaces_the_match_one_byte_longer)
{
    const framed_block block("abcdefX----abcdefY"); // "bcdef" at 1 and 12
    EXPECT_EQ(verdict_on<1>(block, 11, 1, {5, 100}), (verdict{false, 6, 11}));
}

TEST(lookahead_by_1, a_candidate_must_share_the_byte_at_len_minus_1)
{
    // "bcdef" are five bytes: byte 5 is "X" and "Y".  Extended back they would be as long as a
    // match of 6 and nearer, but the candidate is rejected.
    const framed_block block("abcdefX----abcdefY");
    EXPECT_EQ(verdict_on<1>(block, 11, 1, {6, 100}), (verdict{false, 6, 100}));
}

TEST(lookahead_by_1, a_candidate_with_other_first_four_bytes_is_rejected)
{
    const framed_block block("abXde----abYde"); // byte 3 agrees, byte 1 does not
    EXPECT_EQ(verdict_on<1>(block, 9, 1, {4, 100}), (verdict{false, 4, 100}));
}

TEST(lookahead_by_1, a_candidate_that_does_not_extend_back_pays_for_one_literal)
{
    // Different bytes, "-" and "a", precede the equal ones at 1 and 17: distance 16.
    const framed_block six("-bcdefgX--------abcdefgY");
    // 6 - 4 - 1: one byte more at distance 16, 16 >> 3 = 2.
    EXPECT_EQ(verdict_on<1>(six, 16, 1, {4, 3}), (verdict{true, 4, 3}));
    EXPECT_EQ(verdict_on<1>(six, 16, 1, {4, 2}), (verdict{false, 4, 2}));
    // 6 - 5 - 1: the same length, so the nearer one.
    EXPECT_EQ(verdict_on<1>(six, 16, 1, {5, 17}), (verdict{true, 5, 17}));
    EXPECT_EQ(verdict_on<1>(six, 16, 1, {5, 16}), (verdict{false, 5, 16}));
    // 6 - 6 - 1: a byte less, so it must be nearer by more than a factor of eight.
    EXPECT_EQ(verdict_on<1>(six, 16, 1, {6, 136}), (verdict{true, 6, 136}));
    EXPECT_EQ(verdict_on<1>(six, 16, 1, {6, 135}), (verdict{false, 6, 135}));
}

TEST(lookahead_by_1, the_position_itself_as_a_candidate_is_not_extended_back)
{
    // Extended, the zeros would give 7 bytes at distance 1, nearer than 7 at distance 2.
    const framed_block run(std::string(9, '\0'));
    EXPECT_EQ(verdict_on<1>(run, 2, 2, {7, 2}), (verdict{false, 7, 2}));
}

TEST(lookahead_by_1, a_candidate_at_position_0_is_not_extended_back)
{
    const framed_block block("bcdefX----abcdefY", "a");
    EXPECT_EQ(verdict_on<1>(block, 10, 0, {4, 1}), (verdict{false, 4, 1}));
}

TEST(lookahead_by_2, a_candidate_that_extends_back_replaces_the_match_two_bytes_longer)
{
    const framed_block block("abcdefgX----abcdefgY"); // "cdefg" at 2 and 14
    EXPECT_EQ(verdict_on<2>(block, 12, 2, {4, 1}), (verdict{false, 7, 12}));
}

TEST(lookahead_by_2, a_candidate_must_share_the_byte_at_len)
{
    // "cdef" are four bytes: byte 4 is "X" and "Y".  Extended back they would be two bytes longer.
    const framed_block block("abcdefX----abcdefY");
    EXPECT_EQ(verdict_on<2>(block, 11, 2, {4, 100}), (verdict{false, 4, 100}));
}

TEST(lookahead_by_2, a_candidate_that_does_not_extend_back_pays_for_two_bytes)
{
    // Different bytes, "-b" and "ab", precede the equal ones at 2 and 18: distance 16.
    const framed_block seven("-bcdefghiX------abcdefghiY");
    // 7 - 4 - 2: one byte more at distance 16.
    EXPECT_EQ(verdict_on<2>(seven, 16, 2, {4, 3}), (verdict{true, 4, 3}));
    EXPECT_EQ(verdict_on<2>(seven, 16, 2, {4, 2}), (verdict{false, 4, 2}));
    // 7 - 5 - 2 and 7 - 6 - 2.
    EXPECT_EQ(verdict_on<2>(seven, 16, 2, {5, 17}), (verdict{true, 5, 17}));
    EXPECT_EQ(verdict_on<2>(seven, 16, 2, {5, 16}), (verdict{false, 5, 16}));
    EXPECT_EQ(verdict_on<2>(seven, 16, 2, {6, 136}), (verdict{true, 6, 136}));
    EXPECT_EQ(verdict_on<2>(seven, 16, 2, {6, 135}), (verdict{false, 6, 135}));
}

TEST(lookahead_by_2, a_candidate_at_position_1_is_not_extended_back)
{
    // Of "ab" before 1 one byte is before the block.
    const framed_block block("bcdefgX----abcdefgY", "a");
    EXPECT_EQ(verdict_on<2>(block, 11, 1, {4, 1}), (verdict{false, 4, 1}));
}

} // namespace
} // namespace quarnex
