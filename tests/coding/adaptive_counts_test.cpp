#include "coding/adaptive_counts.h"

#include <gtest/gtest.h>
#include <numeric>

namespace quarnex {
namespace {

constexpr u32 max_total = 100;
constexpr u32 max_period = 16;

using counts_of_4 = adaptive_counts<8>; // with room for more

counts_of_4 started(u32 period)
{
    counts_of_4 stats{};
    start_counts(stats, 4, period);
    return stats;
}

void expect_counts(const counts_of_4& stats, std::initializer_list<u16> counts)
{
    EXPECT_EQ(std::vector<u16>(stats.counts, stats.counts + 4), std::vector<u16>(counts));
}

TEST(adaptive_counts, start_with_one_each)
{
    const counts_of_4 stats = started(2);
    EXPECT_EQ(stats.symbols, 4U);
    EXPECT_EQ(stats.total, 4U);
    EXPECT_EQ(stats.period, 2U);
    EXPECT_EQ(stats.countdown, 2);
    expect_counts(stats, {1, 1, 1, 1});
    EXPECT_EQ(stats.counts[4], 0U);
}

TEST(adaptive_counts, a_period_ends_with_its_last_symbol)
{
    counts_of_4 stats = started(3);
    EXPECT_FALSE(count_symbol<1>(stats, 2));
    EXPECT_FALSE(count_symbol<1>(stats, 2));
    EXPECT_TRUE(count_symbol<1>(stats, 0));
    EXPECT_EQ(stats.total, 4U); // until the period is closed
    close_period<max_total>(stats);
    EXPECT_EQ(stats.total, 7U);
    expect_counts(stats, {2, 1, 3, 1});
}

TEST(adaptive_counts, a_step_past_the_end_of_the_period_is_in_the_total)
{
    counts_of_4 stats = started(3);
    EXPECT_FALSE(count_symbol<2>(stats, 1));
    EXPECT_TRUE(count_symbol<2>(stats, 1));
    EXPECT_EQ(stats.countdown, -1);
    close_period<max_total>(stats);
    EXPECT_EQ(stats.total, 8U);
    expect_counts(stats, {1, 5, 1, 1});
}

TEST(adaptive_counts, a_total_above_the_limit_is_halved_upwards_and_one_at_it_is_not)
{
    counts_of_4 stats = started(97);
    for (int i = 0; i < 96; ++i) count_symbol<1>(stats, 3);
    stats.period = 96;
    stats.countdown = 0;
    close_period<max_total>(stats);
    EXPECT_EQ(stats.total, 100U);
    expect_counts(stats, {1, 1, 1, 97});

    count_symbol<1>(stats, 2);
    stats.period = 1;
    stats.countdown = 0;
    close_period<max_total>(stats);
    expect_counts(stats, {1, 1, 1, 49});
    EXPECT_EQ(stats.total, 52U);
}

TEST(adaptive_counts, periods_double_up_to_the_longest)
{
    counts_of_4 stats = started(4);
    for (const u32 expected : {8U, 16U, 16U, 16U}) {
        stats.countdown = -1;
        open_period<max_period>(stats);
        EXPECT_EQ(stats.period, expected);
        EXPECT_EQ(stats.countdown, static_cast<i32>(expected));
    }
}

} // namespace
} // namespace quarnex
