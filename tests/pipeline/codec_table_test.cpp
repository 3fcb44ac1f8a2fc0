#include "pipeline/codec_table.h"

#include "pipeline/parameters.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

u32 encoders_in(u64 gib, u8 level, u16 block_mb)
{
    file_parameters parameters{.codec = {.method = 1, .level = level}, .block_mb = block_mb};
    settle_parameters(parameters, level_defaults());
    return max_encoders(parameters, gib << 30);
}

TEST(codec_table, the_number_of_encoders_that_fit_depends_on_level_and_block_size)
{
    // Three shared buffers; each encoder has two buffers and a table of 32 or 128 MiB plus one
    // bucket, or the lists of level 8.
    constexpr u32 lists = sizeof(void*) > sizeof(u32) ? 384 : 320;
    EXPECT_EQ(encoders_in(4, 3, 32), (3072U - 96) / (64 + 32) - 1);
    EXPECT_EQ(encoders_in(4, 7, 16), (3072U - 48) / (32 + 128));
    EXPECT_EQ(encoders_in(4, 8, 32), (3072U - 96) / (64 + lists));
    EXPECT_EQ(encoders_in(2, 8, 32), (1536U - 96) / (64 + lists));
}

TEST(codec_table, two_level_9_encoders_fit_into_32_bits)
{
    // A 64-bit trie reserves address space generously.
    EXPECT_EQ(encoders_in(4, 9, 32), sizeof(void*) > sizeof(u32) ? 1U : 2U);
    EXPECT_EQ(encoders_in(2, 9, 32), 1U);
}

TEST(codec_table, one_encoder_always_fits_and_64_bits_fit_any_number)
{
    for (const u8 level : {u8{0}, u8{3}, u8{7}, u8{8}, u8{9}}) {
        EXPECT_EQ(encoders_in(0, level, 2047), 1U);
        EXPECT_GE(encoders_in(u64{1} << 33, level, 2047), 16U);
    }
}

TEST(codec_table, rows_0_6_and_7_are_empty)
{
    ASSERT_EQ(encoder_table.size(), 8U);
    ASSERT_EQ(decoder_table.size(), 8U);
    for (usize method = 0; method < 8; ++method) {
        const bool exists = is_method(static_cast<u8>(method));
        EXPECT_EQ(encoder_table[method] != nullptr, exists) << method;
        EXPECT_EQ(decoder_table[method] != nullptr, exists) << method;
    }
}

TEST(codec_table, there_are_five_methods)
{
    for (u32 method = 0; method < 256; ++method) {
        EXPECT_EQ(is_method(static_cast<u8>(method)), method >= 1 && method <= 5) << method;
    }
}

} // namespace
} // namespace quarnex
