#include "coding/main_alphabet.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(main_alphabet, has_288_symbols)
{
    EXPECT_EQ(literal_symbols, 256U);
    EXPECT_EQ(literal_symbols + short_lengths - 1, 286U);
    EXPECT_EQ(long_length_symbol, 287U);
    EXPECT_EQ(main_symbols, 288U);
}

TEST(slot_count, the_smallest_block_still_has_17_slots)
{
    for (const u32 len : {0U, 1U, 127U}) EXPECT_EQ(slot_count(len), 17U) << len; // 256 to 383
    EXPECT_EQ(slot_count(128), 18U);
}

TEST(slot_count, grows_where_the_length_and_256_start_a_slot)
{
    EXPECT_EQ(slot_count((1U << 20) - 257), 40U);
    EXPECT_EQ(slot_count((1U << 20) - 256), 41U);
    EXPECT_EQ(slot_count((3U << 19) - 256), 42U);
    EXPECT_EQ(slot_count(32U << 20), 51U);
    EXPECT_EQ(slot_count(2047U << 20), 62U); // the largest block
}

} // namespace
} // namespace quarnex
