#include "coding/min_match.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(static_min_match, is_4_at_levels_0_to_7_and_3_above)
{
    for (u32 level = 0; level <= 7; ++level) EXPECT_EQ(static_min_match(level), 4U) << level;
    for (const u32 level : {8U, 9U}) EXPECT_EQ(static_min_match(level), 3U) << level;
}

TEST(min_match, is_4_at_levels_0_to_7_and_3_at_8_and_2_at_9)
{
    for (u32 level = 0; level <= 7; ++level) EXPECT_EQ(min_match(level), 4U) << level;
    EXPECT_EQ(min_match(8), 3U);
    EXPECT_EQ(min_match(9), 2U);
}

TEST(max_match_overrun, is_that_of_the_hash_searches_and_none_for_the_parses)
{
    EXPECT_EQ(max_match_overrun(min_match(7)), 5U);
    EXPECT_EQ(max_match_overrun(min_match(8)), 0U);
    EXPECT_EQ(max_match_overrun(min_match(9)), 0U);
}

TEST(with_min_match, passes_a_constant)
{
    const auto constant = [](auto shortest) {
        constexpr u32 value = shortest;
        return value;
    };
    for (u32 level = 0; level <= 9; ++level)
        EXPECT_EQ(with_min_match(level, constant), min_match(level)) << level;
}

} // namespace
} // namespace quarnex
