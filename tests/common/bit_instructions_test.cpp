#include "common/bit_instructions.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr u64 word = 0xFEDC'BA98'7654'3210;

template <class Bits>
void expect_fields()
{
    EXPECT_EQ(Bits::extract(word, bit_field(0, 4)), 0x0U);
    EXPECT_EQ(Bits::extract(word, bit_field(4, 8)), 0x21U);
    EXPECT_EQ(Bits::extract(word, bit_field(1, 13)), 0x1908U);
    EXPECT_EQ(Bits::extract(word, bit_field(21, 3)), 0x2U);
    EXPECT_EQ(Bits::extract(word, bit_field(32, 31)), 0x7EDC'BA98U);
    EXPECT_EQ(Bits::extract(word, bit_field(60, 4)), 0xFU);
}

TEST(bit_instructions, any_processor_extracts_fields)
{
    expect_fields<portable_bits>();
}

TEST(bit_instructions, a_processor_with_them_extracts_the_same)
{
    if (!has_bit_instructions()) GTEST_SKIP() << "this processor has none";
    expect_fields<fast_bits>();
}

} // namespace
} // namespace quarnex
