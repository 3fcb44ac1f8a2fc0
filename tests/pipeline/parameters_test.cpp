#include "pipeline/parameters.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using ten_levels = std::array<i32, 10>;

TEST(parameters, level_defaults)
{
    const level_defaults defaults;
    EXPECT_EQ(defaults.hash_bits, (ten_levels{12, 14, 18, 23, 24, 25, 25, 25, 26, 27}));
    EXPECT_EQ(defaults.chain_bits, (ten_levels{1, 1, 1, 1, 2, 3, 4, 6, 7, 8}));
}

TEST(parameters, larger_caches_give_the_two_fastest_levels_larger_tables)
{
    struct cache_case {
        u32 kib;
        i32 level_0;
        i32 level_1;
    };
    for (const auto& [kib, level_0, level_1] : {cache_case{0, 12, 14},
                                                {256, 12, 14},
                                                {512, 12, 14},
                                                {513, 14, 16},
                                                {1024, 14, 16},
                                                {1025, 15, 17},
                                                {65535, 15, 17}}) {
        const level_defaults defaults = fit_to_cache(kib);
        EXPECT_EQ(defaults.hash_bits,
                  (ten_levels{level_0, level_1, 18, 23, 24, 25, 25, 25, 26, 27}))
            << kib;
        EXPECT_EQ(defaults.chain_bits, level_defaults().chain_bits) << kib;
    }
}

file_parameters with_defaults(file_parameters parameters)
{
    settle_parameters(parameters, level_defaults());
    return parameters;
}

TEST(parameters, levels_above_9_become_9)
{
    EXPECT_EQ(with_defaults({.codec = {.level = 255}}).codec.level, 9);
    EXPECT_EQ(with_defaults({.codec = {.level = 10}}).codec.level, 9);
    EXPECT_EQ(with_defaults({.codec = {.level = 9}}).codec.level, 9);
    EXPECT_EQ(with_defaults({.codec = {.level = 8}}).codec.level, 8);
    EXPECT_EQ(with_defaults({.codec = {.level = 255}}).codec.hash_bits, 27);
    EXPECT_EQ(with_defaults({.codec = {.level = 255}}).codec.chain_bits, 8);
}

TEST(parameters, hash_bits_below_10_become_the_levels_default)
{
    for (const i32 given : {-1, 0, 1, 9}) {
        EXPECT_EQ(with_defaults({.codec = {.level = 3, .hash_bits = given}}).codec.hash_bits, 23)
            << given;
    }
    EXPECT_EQ(with_defaults({.codec = {.level = 3, .hash_bits = 10}}).codec.hash_bits, 10);
    EXPECT_EQ(with_defaults({.codec = {.level = 3, .hash_bits = 30}}).codec.hash_bits, 30);
}

TEST(parameters, chain_bits_0_become_the_levels_default)
{
    EXPECT_EQ(with_defaults({.codec = {.level = 7}}).codec.chain_bits, 6);
    EXPECT_EQ(with_defaults({.codec = {.level = 7, .chain_bits = 1}}).codec.chain_bits, 1);
    EXPECT_EQ(with_defaults({.codec = {.level = 7, .chain_bits = 9}}).codec.chain_bits, 9);
}

TEST(parameters, the_given_defaults_are_used)
{
    file_parameters parameters{.codec = {.level = 0}};
    settle_parameters(parameters, fit_to_cache(2048));
    EXPECT_EQ(parameters.codec.hash_bits, 15);
}

TEST(parameters, bit_7_of_the_filter_is_cleared_and_no_other)
{
    EXPECT_EQ(with_defaults({.filter_flags = 0x80}).filter_flags, 0);
    EXPECT_EQ(with_defaults({.filter_flags = 0xFF}).filter_flags, 0x7F);
    EXPECT_EQ(with_defaults({.filter_flags = 0x01}).filter_flags, 0x01);
}

TEST(parameters, all_other_values_are_kept)
{
    const file_parameters kept =
        with_defaults({.codec = {.method = 3, .level = 1, .lit_ctx_bits = 5}, .block_mb = 33});
    EXPECT_EQ(kept.codec.method, 3);
    EXPECT_EQ(kept.codec.lit_ctx_bits, 5);
    EXPECT_EQ(kept.block_mb, 33);
}

TEST(parameters, the_block_size_of_levels_4_to_7_is_capped_at_16_mib)
{
    for (u8 level = 0; level < 10; ++level) {
        const u16 cap = level >= 4 && level <= 7 ? 16 : 2047;
        const codec_parameters codec{.level = level};
        EXPECT_EQ(with_defaults({.codec = codec, .block_mb = 2047}).block_mb, cap) << int{level};
        EXPECT_EQ(with_defaults({.codec = codec, .block_mb = 15}).block_mb, 15) << int{level};
    }
}

} // namespace
} // namespace quarnex
