#include "common/bit_instructions.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr u64 word = 0xFEDC'BA98'7654'3210;

template <class Bits>
void expect_fields()
{
    constexpr auto machine_word = static_cast<usize>(word);
    EXPECT_EQ(Bits::extract(machine_word, bit_field(0, 4)), 0x0U);
    EXPECT_EQ(Bits::extract(machine_word, bit_field(4, 8)), 0x21U);
    EXPECT_EQ(Bits::extract(machine_word, bit_field(1, 13)), 0x1908U);
    EXPECT_EQ(Bits::extract(machine_word, bit_field(21, 3)), 0x2U);
    EXPECT_EQ(Bits::extract(machine_word, bit_field(1, 31)), 0x3B2A'1908U);
    if (sizeof(usize) == sizeof(u32)) return;
    EXPECT_EQ(Bits::extract(machine_word, bit_field(32, 31)), 0x7EDC'BA98U);
    EXPECT_EQ(Bits::extract(machine_word, bit_field(60, 4)), 0xFU);
}

template <class Bits>
void expect_leading_zeros()
{
    EXPECT_EQ(Bits::leading_zeros(0), 64U);
    for (u32 zeros = 0; zeros < 64; ++zeros) {
        EXPECT_EQ(Bits::leading_zeros(u64{1} << 63 >> zeros), zeros);
        EXPECT_EQ(Bits::leading_zeros(~u64{0} >> zeros), zeros);
    }
}

TEST(bit_instructions, portable_bits_extracts_fields)
{
    expect_fields<portable_bits>();
}

TEST(bit_instructions, fast_bits_extracts_fields)
{
    if (!has_bit_instructions()) GTEST_SKIP() << "not on this processor";
    expect_fields<fast_bits>();
}

TEST(bit_instructions, portable_bits_counts_leading_zeros)
{
    expect_leading_zeros<portable_bits>();
}

TEST(bit_instructions, fast_bits_counts_leading_zeros)
{
    if (!has_bit_instructions()) GTEST_SKIP() << "not on this processor";
    expect_leading_zeros<fast_bits>();
}

TEST(bit_instructions, computed_here_returns_its_argument)
{
    for (const u64 value : {u64{0}, u64{1}, word, ~u64{0}}) EXPECT_EQ(computed_here(value), value);
}

} // namespace
} // namespace quarnex
