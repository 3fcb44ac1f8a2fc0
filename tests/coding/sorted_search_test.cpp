#include "coding/sorted_search.h"

#include "support/shapes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

/// Both forms on eight numbers, which must agree.
u32 count(const std::vector<u16>& sorted, u32 limit)
{
    const u32 portably = count_not_above_portably(sorted.data(), limit);
    EXPECT_EQ(count_not_above(sorted.data(), limit), portably) << limit;
    return portably;
}

TEST(count_not_above, at_the_edges_of_each_number)
{
    const std::vector<u16> sorted{0, 1, 1, 0x7FFF, 0x8000, 0x8001, 0xFFFE, 0xFFFF};
    EXPECT_EQ(count(sorted, 0), 1U);
    EXPECT_EQ(count(sorted, 1), 3U);
    EXPECT_EQ(count(sorted, 2), 3U);
    EXPECT_EQ(count(sorted, 0x7FFE), 3U);
    EXPECT_EQ(count(sorted, 0x7FFF), 4U);
    EXPECT_EQ(count(sorted, 0x8000), 5U);
    EXPECT_EQ(count(sorted, 0xFFFD), 6U);
    EXPECT_EQ(count(sorted, 0xFFFE), 7U);
    EXPECT_EQ(count(sorted, 0xFFFF), 8U);
}

TEST(count_not_above, none)
{
    EXPECT_EQ(count(std::vector<u16>(8, 5), 4), 0U);
}

TEST(count_not_above, any_numbers)
{
    test::random_source random(1);
    for (int round = 0; round < 50000; ++round) {
        std::vector<u16> sorted(sorted_group);
        const u32 width = random.below(17);
        for (u16& number : sorted) number = static_cast<u16>(random.below(1U << width));
        std::sort(sorted.begin(), sorted.end());
        const u32 limit = random.below(1U << width);
        const auto expected = std::upper_bound(sorted.begin(), sorted.end(), limit);
        ASSERT_EQ(count(sorted, limit), static_cast<u32>(expected - sorted.begin()));
    }
}

TEST(find_last_not_above, from_any_place_before_it)
{
    test::random_source random(2);
    for (u32 size = 1; size <= 60; ++size) {
        std::vector<u16> sorted(size);
        for (u16& number : sorted) number = static_cast<u16>(random.below(100));
        std::sort(sorted.begin(), sorted.end());
        sorted.insert(sorted.end(), sorted_group, 0xFFFF);
        for (u32 limit = sorted[0]; limit < 100; ++limit) {
            const auto above = std::upper_bound(sorted.begin(), sorted.end(), limit);
            const auto expected = static_cast<u32>(above - sorted.begin()) - 1;
            for (u32 first = 0; first <= expected; ++first)
                ASSERT_EQ(find_last_not_above(sorted.data(), first, limit), expected) << first;
        }
    }
}

} // namespace
} // namespace quarnex
