#include "coding/bit_cost.h"

#include <cmath>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(bit_cost, is_the_truncated_logarithm)
{
    for (u32 i = 2; i <= 4096; ++i) {
        const double exact = std::log(static_cast<double>(i)) * 4096 / std::log(2.0);
        EXPECT_EQ(bit_cost[i], static_cast<u16>(exact)) << i;
    }
}

TEST(bit_cost, is_exact_at_powers_of_two)
{
    for (u32 log = 0; log <= 12; ++log) EXPECT_EQ(bit_cost[1U << log], log * 4096);
    EXPECT_EQ(bit_cost_half, 11 * 4096);
}

TEST(bit_cost, entry_0_stands_for_half_a_step)
{
    EXPECT_EQ(bit_cost[0], 0xF000);
}

} // namespace
} // namespace quarnex
