#include "method1/m1_prices.h"

#include "support/price_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

u32 price(u32 len, u32 dist)
{
    return m1_prices<3>().matches(1000000, dist)(len);
}

TEST(m1_prices, a_literal_costs_a_byte_and_33_units)
{
    EXPECT_EQ(m1_prices<3>().literal(5), 289U);
}

TEST(m1_prices, a_short_token_costs_513_up_to_6_bytes_and_distance_8192)
{
    EXPECT_EQ(price(3, 1), 513U);
    EXPECT_EQ(price(6, 1), 513U);
    EXPECT_EQ(price(3, 8192), 513U);
    EXPECT_EQ(price(6, 8192), 513U);
}

TEST(m1_prices, a_medium_token_costs_769_up_to_10_bytes_and_distance_524288)
{
    EXPECT_EQ(price(7, 1), 769U);
    EXPECT_EQ(price(3, 8193), 769U);
    EXPECT_EQ(price(10, 524288), 769U);
}

TEST(m1_prices, a_long_token_costs_a_byte_and_the_bytes_of_its_distance)
{
    // 1, 2, 3, 4 and 5 bytes.
    EXPECT_EQ(price(11, 1), 257U + 256);
    EXPECT_EQ(price(11, 127), 257U + 256);
    EXPECT_EQ(price(11, 128), 257U + 512);
    EXPECT_EQ(price(11, 16383), 257U + 512);
    EXPECT_EQ(price(11, 16384), 257U + 768);
    EXPECT_EQ(price(3, 524289), 257U + 768);
    EXPECT_EQ(price(3, 2097151), 257U + 768);
    EXPECT_EQ(price(3, 2097152), 257U + 1024);
    EXPECT_EQ(price(3, 268435455), 257U + 1024);
    EXPECT_EQ(price(3, 268435456), 257U + 1280);
}

TEST(m1_prices, a_long_length_costs_another_integer)
{
    // c up to 62 is in the first byte; from 63 on c - 63 follows in 1, 2 or 3 bytes.
    EXPECT_EQ(price(65, 1), 513U);
    EXPECT_EQ(price(66, 1), 513U + 256);
    EXPECT_EQ(price(193, 1), 513U + 256);
    EXPECT_EQ(price(194, 1), 513U + 512);
    EXPECT_EQ(price(16449, 1), 513U + 512);
    EXPECT_EQ(price(16450, 1), 513U + 768);
    EXPECT_EQ(price(255, 20000), 257U + 512 + 768);
}

TEST(m1_prices, of_runs_are_those_of_single_lengths)
{
    m1_prices<3> prices;
    for (const u32 dist : test::many_distances(UINT32_MAX)) {
        test::expect_runs_like_single_lengths(prices.matches(1, dist), 3);
        if (HasFatalFailure()) FAIL() << dist;
    }
}

} // namespace
} // namespace quarnex
