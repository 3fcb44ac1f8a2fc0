#include "method2/m2_prices.h"

#include "plain/m2_plain.h"
#include "support/price_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

u32 price(u32 len, u32 dist)
{
    return m2_prices<3>().matches(1U << 26, dist)(len);
}

TEST(m2_prices, a_literal_costs_9_bits)
{
    EXPECT_EQ(m2_prices<3>().literal(5), 9U);
}

TEST(m2_prices, matches_worked_by_hand)
{
    // gamma(2) 3 bits, class 5, extra 4
    EXPECT_EQ(price(3, 1), 12U);
    EXPECT_EQ(price(4, 16), 12U);
    EXPECT_EQ(price(5, 16), 14U); // gamma(4)
    EXPECT_EQ(price(14, 1), 16U); // gamma(13)
    EXPECT_EQ(price(15, 1), 18U); // gamma(16): codes 14 and 15 are no matches
    EXPECT_EQ(price(30, 1), 18U);
    EXPECT_EQ(price(31, 1), 20U);
    EXPECT_EQ(price(3, 32), 12U); // class 1
    EXPECT_EQ(price(3, 33), 13U); // class 2, 5 bits
    EXPECT_EQ(price(3, m2_max_dist), 38U);
}

TEST(m2_prices, equal_the_size_of_each_match)
{
    for (u32 dist_class = 0; dist_class < test::m2_plain_classes; ++dist_class) {
        const u32 first = test::m2_plain_first_dist(dist_class);
        for (const u32 dist : {first, first + 15}) {
            for (u32 len = 3; len < 600; ++len) {
                // The stream has the first byte, then the bits of the match.
                test::m2_plain_writer stream(0, 8);
                stream.match(len, dist);
                const auto bits = 8 * (static_cast<u32>(stream.out.size()) - 1) - stream.free_bits;
                ASSERT_EQ(price(len, dist), bits) << len << " at " << dist;
            }
        }
    }
}

TEST(m2_prices, of_3_bytes_exceed_three_literals_from_class_28_on)
{
    const u32 limit = test::m2_plain_first_dist(28);
    EXPECT_EQ(price(3, limit - 1), 27U);
    EXPECT_EQ(price(3, limit), 28U);
}

TEST(m2_prices, of_runs_are_those_of_single_lengths)
{
    m2_prices<3> prices;
    for (const u32 dist : test::many_distances(m2_max_dist)) {
        test::expect_runs_like_single_lengths(prices.matches(1, dist), 3);
        if (HasFatalFailure()) FAIL() << dist;
    }
}

} // namespace
} // namespace quarnex
