#include "match/lcp_intervals.h"

#include "match/plain_suffixes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// A call of a visitor.
struct visit {
    enum kind { add, close, top };
    kind call;
    u32 mark; // the index, for add
    u32 length = 0, first = 0, end = 0, children = 0;
    bool operator==(const visit&) const = default;
};

constexpr u32 mark_of(u32 k)
{
    return 7 * k + 1000;
}

/// Records calls, and gives each suffix a different mark.
struct recorder {
    std::vector<visit> visits;

    u32 add(u32 k)
    {
        visits.push_back({visit::add, k});
        return mark_of(k);
    }
    void close(const lcp_interval& ending, u32 end)
    {
        visits.push_back(
            {visit::close, ending.mark, ending.length, ending.first, end, ending.children});
    }
    void top(u32 mark) { visits.push_back({visit::top, mark}); }
};

/// Direct children of an interval: one more than the borders between them.
u32 plain_children(const test::plain_interval& interval, const std::vector<u32>& lcp)
{
    return 1 + static_cast<u32>(std::count(lcp.begin() + interval.first + 1,
                                           lcp.begin() + interval.end, interval.length));
}

std::vector<visit> plain_visits(const std::vector<u32>& lcp)
{
    std::vector<visit> visits;
    const auto intervals = test::plain_intervals(lcp);
    const auto size = static_cast<u32>(lcp.size());
    u32 top = 0;
    for (u32 k = 0; k < size; ++k) {
        visits.push_back({visit::add, k});
        for (const auto& interval : intervals) {
            if (interval.end == k + 1)
                visits.push_back({visit::close, mark_of(interval.first), interval.length,
                                  interval.first, interval.end, plain_children(interval, lcp)});
        }
        if (k + 1 != size && lcp[k + 1] != 0) continue;
        visits.push_back({visit::top, mark_of(top)});
        top = k + 1;
    }
    return visits;
}

void expect_plain_visits(const std::vector<u32>& lcp)
{
    recorder found;
    u32 asked = 0; // shared() is called once for each index, in order
    visit_lcp_intervals(
        static_cast<u32>(lcp.size()),
        [&](u32 k) {
            EXPECT_EQ(k, ++asked);
            return lcp[k];
        },
        found);
    EXPECT_EQ(asked + 1, lcp.size());
    ASSERT_TRUE(found.visits == plain_visits(lcp)) << testing::PrintToString(lcp);
}

TEST(lcp_intervals, of_one_suffix)
{
    expect_plain_visits({0});
}

TEST(lcp_intervals, are_visited_inner_ones_first)
{
    const std::vector<u32> lcp{0, 1, 3, 2};
    recorder found;
    visit_lcp_intervals(
        4, [&](u32 k) { return lcp[k]; }, found);
    // Suffixes 1 and 2 share three bytes, 1 to 3 two, all one.
    const std::vector<visit> expected{
        {visit::add, 0},
        {visit::add, 1},
        {visit::add, 2},
        {visit::close, mark_of(1), 3, 1, 3, 2},
        {visit::add, 3},
        {visit::close, mark_of(1), 2, 1, 4, 2},
        {visit::close, mark_of(0), 1, 0, 4, 2},
        {visit::top, mark_of(0)},
    };
    EXPECT_TRUE(found.visits == expected);
}

TEST(lcp_intervals, of_all_lengths_are_nested)
{
    std::vector<u32> lcp(max_interval_length + 1);
    std::iota(lcp.begin(), lcp.end(), 0U);
    expect_plain_visits(lcp);
    std::reverse(lcp.begin() + 1, lcp.end());
    expect_plain_visits(lcp);
}

TEST(lcp_intervals, equal_the_plain_ones_for_any_lengths)
{
    test::random_source random(1);
    for (u32 round = 0; round < 3000; ++round) {
        std::vector<u32> lcp(1 + random.below(60));
        const u32 limit = round % 10 == 0 ? max_interval_length + 1 : 1 + random.below(6);
        for (u32& length : lcp) length = random.below(limit);
        ASSERT_NO_FATAL_FAILURE(expect_plain_visits(lcp));
    }
}

TEST(lcp_intervals, equal_the_plain_ones_for_all_shapes)
{
    for (const auto& shape : test::all_shapes()) {
        const bytes block = shape.make(400, 3);
        std::vector<u32> lcp = test::plain_lcp(block, test::plain_suffix_array(block));
        for (u32& length : lcp) length = std::min(length, max_interval_length);
        ASSERT_NO_FATAL_FAILURE(expect_plain_visits(lcp));
    }
}

} // namespace
} // namespace quarnex
