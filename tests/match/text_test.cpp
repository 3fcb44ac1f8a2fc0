#include "match/text.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr u32 size = 20;

TEST(block_text, a_match_extends_past_the_block_in_its_first_four_bytes_only)
{
    const test::bytes zeros(size + search_reads_past);
    const block_text text{zeros.data(), size};
    EXPECT_EQ(text.match_length(1, 0), 19U);
    EXPECT_EQ(text.match_length(size - 5, 0), 5U);
    EXPECT_EQ(text.match_length(size - 4, 0), 4U);
    EXPECT_EQ(text.match_length(size - 3, 0), 4U); // 1 byte past the block
    EXPECT_EQ(text.match_length(size - 1, 0), 4U);
    EXPECT_EQ(text.match_length(size, 0), 4U); // all past the block, as in lookahead
    EXPECT_EQ(text.match_length(size + 1, 0), 4U);
}

TEST(block_text, a_match_ends_at_the_first_difference)
{
    test::bytes bytes(size + search_reads_past);
    const block_text text{bytes.data(), size};
    for (u32 len = 4; len < 10; ++len) {
        bytes.assign(bytes.size(), 0);
        bytes[10 + len] = 1;
        EXPECT_EQ(text.match_length(10, 0), len);
    }
}

TEST(block_text, positions_match_if_their_first_four_bytes_agree)
{
    for (u32 differing = 0; differing < 5; ++differing) {
        test::bytes bytes(size + search_reads_past);
        const block_text text{bytes.data(), size};
        bytes[10 + differing] = 1;
        EXPECT_EQ(text.matches(10, 0), differing == 4) << differing;
    }
}

TEST(block_text, positions_match_up_to_max_dist)
{
    const test::bytes zeros(size + search_reads_past);
    const block_text text{zeros.data(), size, 10};
    EXPECT_TRUE(text.matches(10, 9));
    EXPECT_TRUE(text.matches(10, 0));
    EXPECT_FALSE(text.matches(11, 0));
    EXPECT_TRUE(text.matches(11, 1));
    const block_text unlimited{zeros.data(), size};
    EXPECT_TRUE(unlimited.matches(size - 1, 0));
}

} // namespace
} // namespace quarnex
