#include "coding/alphabet_tokens.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;

/// Records the calls as text.
struct recording_coder {
    std::string* log;

    void put_main(u32 symbol) { *log += " m" + std::to_string(symbol); }
    void put_length(u32 slot) { *log += " l" + std::to_string(slot); }
    void put_distance(u32 slot) { *log += " d" + std::to_string(slot); }
    void put_extra(u32 bits, u32 count)
    {
        *log += " x" + std::to_string(bits) + '/' + std::to_string(count);
    }
    void set_context(u8 byte) { *log += std::string(" ") + static_cast<char>(byte); }
    bool full() const { return log->size() > 20; }
    u32 finish() { return 77; }
};

/// Returns the coded form of a match at position 1 of a block.
template <u32 MinMatch>
std::string match_of(u32 len, u32 dist)
{
    bytes block(1 + len, 'a');
    block.back() = 'z';
    std::string log;
    alphabet_tokens<MinMatch, recording_coder> tokens(block.data(), {&log});
    tokens.match(1, len, dist);
    return log;
}

TEST(alphabet_tokens, a_literal_is_its_byte)
{
    const bytes block = bytes_of("ab~");
    std::string log;
    alphabet_tokens<4, recording_coder> tokens(block.data(), {&log});
    EXPECT_EQ(tokens.first_pos, 1U);
    tokens.literal(1);
    tokens.literal(2);
    EXPECT_EQ(log, " m98 b m126 ~");
}

TEST(alphabet_tokens, the_shortest_match_is_symbol_256)
{
    EXPECT_EQ(match_of<4>(4, 1), " m256 d0 z");
    EXPECT_EQ(match_of<3>(3, 1), " m256 d0 z");
    EXPECT_EQ(match_of<2>(2, 1), " m256 d0 z");
}

TEST(alphabet_tokens, symbol_286_is_min_match_plus_30_and_longer_lengths_take_the_escape)
{
    EXPECT_EQ(match_of<4>(34, 1), " m286 d0 z");
    EXPECT_EQ(match_of<4>(35, 1), " m287 l0 d0 z");
    EXPECT_EQ(match_of<3>(33, 1), " m286 d0 z");
    EXPECT_EQ(match_of<3>(34, 1), " m287 l0 d0 z");
    EXPECT_EQ(match_of<2>(32, 1), " m286 d0 z");
    EXPECT_EQ(match_of<2>(33, 1), " m287 l0 d0 z");
}

TEST(alphabet_tokens, a_remainder_of_4_needs_an_extra_bit_and_3_does_not)
{
    EXPECT_EQ(match_of<4>(35 + 3, 1), " m287 l3 d0 z");
    EXPECT_EQ(match_of<4>(35 + 4, 1), " m287 l4 x0/1 d0 z");
    EXPECT_EQ(match_of<4>(35 + 5, 1), " m287 l4 x1/1 d0 z");
    EXPECT_EQ(match_of<4>(35 + 1000, 1), " m287 l19 x232/8 d0 z"); // 768 + 232
}

TEST(alphabet_tokens, a_distance_less_one_is_a_value)
{
    EXPECT_EQ(match_of<4>(4, 4), " m256 d3 z");
    EXPECT_EQ(match_of<4>(4, 5), " m256 d4 x0/1 z");
    EXPECT_EQ(match_of<4>(4, 6), " m256 d4 x1/1 z");
    EXPECT_EQ(match_of<4>(4, 7), " m256 d5 x0/1 z");
    EXPECT_EQ(match_of<4>(4, 0x40000 + 1), " m256 d36 x0/17 z");
    EXPECT_EQ(match_of<4>(4, 0x80000), " m256 d37 x131071/17 z");
    EXPECT_EQ(match_of<4>(4, 0xFFFFFFFF), " m256 d63 x1073741822/30 z");
}

TEST(alphabet_tokens, full_and_finish_are_those_of_the_coder)
{
    const bytes block(10);
    std::string log;
    alphabet_tokens<4, recording_coder> tokens(block.data(), {&log});
    EXPECT_FALSE(tokens.full());
    for (int i = 0; i < 9; ++i) tokens.literal(1);
    EXPECT_TRUE(tokens.full());
    EXPECT_EQ(tokens.finish(), 77U);
}

} // namespace
} // namespace quarnex
