#include "pipeline/codec_table.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using ten_levels = std::array<i32, 10>;

TEST(codec_table, level_defaults)
{
    const level_defaults defaults;
    EXPECT_EQ(defaults.hash_bits, (ten_levels{12, 14, 18, 23, 24, 25, 25, 25, 26, 27}));
    EXPECT_EQ(defaults.chain_bits, (ten_levels{1, 1, 1, 1, 2, 3, 4, 6, 7, 8}));
}

TEST(codec_table, larger_caches_give_the_two_fastest_levels_larger_tables)
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
    apply_defaults(parameters, level_defaults());
    return parameters;
}

TEST(codec_table, a_level_that_was_not_chosen_is_9)
{
    EXPECT_EQ(with_defaults({.level = 255}).level, 9);
    EXPECT_EQ(with_defaults({.level = 10}).level, 9);
    EXPECT_EQ(with_defaults({.level = 9}).level, 9);
    EXPECT_EQ(with_defaults({.level = 8}).level, 8);
    EXPECT_EQ(with_defaults({.level = 255}).hash_bits, 27);
    EXPECT_EQ(with_defaults({.level = 255}).chain_bits, 8);
}

TEST(codec_table, hash_bits_below_10_are_those_of_the_level)
{
    for (const i32 given : {-1, 0, 1, 9}) {
        EXPECT_EQ(with_defaults({.level = 3, .hash_bits = given}).hash_bits, 23) << given;
    }
    EXPECT_EQ(with_defaults({.level = 3, .hash_bits = 10}).hash_bits, 10);
    EXPECT_EQ(with_defaults({.level = 3, .hash_bits = 30}).hash_bits, 30);
}

TEST(codec_table, chain_bits_0_are_those_of_the_level)
{
    EXPECT_EQ(with_defaults({.level = 7}).chain_bits, 6);
    EXPECT_EQ(with_defaults({.level = 7, .chain_bits = 1}).chain_bits, 1);
    EXPECT_EQ(with_defaults({.level = 7, .chain_bits = 9}).chain_bits, 9);
}

TEST(codec_table, the_defaults_are_those_of_the_machine)
{
    file_parameters parameters{.level = 0};
    apply_defaults(parameters, fit_to_cache(2048));
    EXPECT_EQ(parameters.hash_bits, 15);
}

TEST(codec_table, bit_7_of_the_filter_is_cleared_and_no_other)
{
    EXPECT_EQ(with_defaults({.filter_flags = 0x80}).filter_flags, 0);
    EXPECT_EQ(with_defaults({.filter_flags = 0xFF}).filter_flags, 0x7F);
    EXPECT_EQ(with_defaults({.filter_flags = 0x01}).filter_flags, 0x01);
}

TEST(codec_table, nothing_else_is_changed)
{
    const file_parameters kept =
        with_defaults({.method = 3, .level = 1, .lit_ctx_bits = 5, .block_mb = 16});
    EXPECT_EQ(kept.method, 3);
    EXPECT_EQ(kept.lit_ctx_bits, 5);
    EXPECT_EQ(kept.block_mb, 16);
}

u32 encoders_in(u64 gib, u8 level, u16 block_mb)
{
    return encoders_with_room(with_defaults({.level = level, .block_mb = block_mb}), gib << 30);
}

TEST(codec_table, encoders_have_room_beside_each_other_by_their_level_and_blocks)
{
    // Three buffers for all, and each has two, and 32, 128 or 320 MiB to search in.
    EXPECT_EQ(encoders_in(4, 3, 32), (3072U - 96) / (64 + 32));
    EXPECT_EQ(encoders_in(4, 7, 16), (3072U - 48) / (32 + 128));
    EXPECT_EQ(encoders_in(4, 8, 32), (3072U - 96) / (64 + 320));
    EXPECT_EQ(encoders_in(2, 8, 32), (1536U - 96) / (64 + 320));
}

TEST(codec_table, at_level_9_two_encoders_have_room_in_32_bits)
{
    // A trie of 64 bits takes addresses as if they cost nothing.
    EXPECT_EQ(encoders_in(4, 9, 32), sizeof(void*) > sizeof(u32) ? 1U : 2U);
    EXPECT_EQ(encoders_in(2, 9, 32), 1U);
}

TEST(codec_table, one_encoder_always_has_room_and_64_bits_have_room_for_all)
{
    for (const u8 level : {u8{0}, u8{3}, u8{7}, u8{8}, u8{9}}) {
        EXPECT_EQ(encoders_in(0, level, 2047), 1U);
        EXPECT_GE(encoders_with_room(with_defaults({.level = level, .block_mb = 2047}), UINT64_MAX),
                  16U);
    }
}

TEST(codec_table, rows_0_6_and_7_are_empty_and_numbers_behind_them_have_no_decoder)
{
    ASSERT_EQ(encoder_table.size(), 8U);
    ASSERT_EQ(decoder_table.size(), 8U);
    for (const usize method : {0U, 6U, 7U}) {
        EXPECT_EQ(encoder_table[method], nullptr);
        EXPECT_EQ(decoder_table[method], nullptr);
    }
    for (u32 method = 8; method < 256; ++method) {
        EXPECT_EQ(find_decoder(static_cast<u8>(method)), nullptr);
    }
    for (u8 method = 1; method <= 5; ++method) {
        EXPECT_NE(encoder_table[method], nullptr);
        EXPECT_EQ(find_decoder(method), decoder_table[method]);
        EXPECT_NE(find_decoder(method), nullptr);
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
