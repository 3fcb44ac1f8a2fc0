#include "match/hash4.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

// 123456791 is 0x075BCD17.

TEST(hash4, is_the_upper_bits_of_the_product)
{
    EXPECT_EQ(hash4(0, 12), 0U);
    EXPECT_EQ(hash4(1, 32), 0x075BCD17U);
    EXPECT_EQ(hash4(1, 12), 0x075U);
    EXPECT_EQ(hash4(1, 5), 0U);
    EXPECT_EQ(hash4(1, 6), 1U);
    EXPECT_EQ(hash4(2, 32), 0x0EB79A2EU);
    EXPECT_EQ(hash4(16, 32), 0x75BCD170U);
}

TEST(hash4, multiplies_modulo_two_to_the_32)
{
    EXPECT_EQ(hash4(0xFFFFFFFF, 32), 0xF8A432E9U); // 2^32 - 0x075BCD17
    EXPECT_EQ(hash4(0xFFFFFFFF, 8), 0xF8U);
    EXPECT_EQ(hash4(0x80000000, 1), 1U); // the factor is odd
    EXPECT_EQ(hash4(0x80000000, 32), 0x80000000U);
    EXPECT_EQ(hash4(0x64636261, 32), 0x3A3083B7U); // "abcd"
    EXPECT_EQ(hash4(0x64636261, 16), 0x3A30U);
}

} // namespace
} // namespace quarnex
