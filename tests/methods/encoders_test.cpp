// Every encoder writes exactly the bytes of its method's plain encoder, and the decoder restores
// the block.
#include "methods/cells.h"
#include "support/plain_payload.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::cell;
using test::find_shape;

constexpr u8 context_method = 4; // the only method whose streams depend on literal context bits
constexpr u8 first_priced_level = 8;
constexpr i32 default_chain_bits = 0; // selects the level's default

class encoder_property : public testing::TestWithParam<cell> {
  protected:
    static bool has_contexts() { return GetParam().method == context_method; }
    static bool is_priced() { return GetParam().level >= first_priced_level; }

    /// `context_bits` matter only for methods with contexts.
    static void check(const bytes& block, i32 hash_bits, i32 chain_bits, u32 context_bits,
                      const std::string& name)
    {
        codec_parameters parameters = test::parameters_of(GetParam().method, GetParam().level);
        parameters.hash_bits = hash_bits;
        if (chain_bits != default_chain_bits) parameters.chain_bits = chain_bits;
        if (has_contexts()) parameters.lit_ctx_bits = static_cast<u8>(context_bits);
        test::expect_plain_payload(block, parameters, name);
    }
};

TEST_P(encoder_property, matches_the_plain_encoder_at_all_sizes_to_300)
{
    // The plain encoder with 256 models is slow, so each of the ten levels tests a part of the
    // sizes.
    const u32 first = has_contexts() ? GetParam().level : 0;
    const u32 step = has_contexts() ? 10 : 1;
    for (const auto& shape : test::all_shapes()) {
        for (u32 size = first; size <= 300; size += step) {
            const auto hash_bits = static_cast<i32>(5 + size % 14);
            const auto chain_bits = static_cast<i32>(1 + size / step % 8);
            ASSERT_NO_FATAL_FAILURE(check(shape.make(size, size * 7 + GetParam().level), hash_bits,
                                          chain_bits, size % 9, shape.name));
        }
    }
}

TEST_P(encoder_property, matches_the_plain_encoder_for_large_blocks)
{
    // The plain encoders of the last two levels are slow.
    const usize size = is_priced() ? 50001 : 300001;
    u32 bits = 0;
    for (const auto& shape : test::all_shapes()) {
        bits = (bits + 1) % 9;
        ASSERT_NO_FATAL_FAILURE(check(shape.make(4095, 1), 12, default_chain_bits, 0, shape.name));
        ASSERT_NO_FATAL_FAILURE(check(shape.make(65536, 2), 12, 3, bits, shape.name));
        ASSERT_NO_FATAL_FAILURE(check(shape.make(size, 3), 18, 4, 8, shape.name));
    }
}

TEST_P(encoder_property, matches_the_plain_encoder_for_matches_longer_than_a_window)
{
    for (const usize period : {1U, 2U, 300U, 5000U}) {
        bytes block = find_shape("random").make(period, period);
        while (block.size() < 12000) block.push_back(block[block.size() - period]);
        ASSERT_NO_FATAL_FAILURE(check(block, 14, 2, 2, "period " + std::to_string(period)));
    }
}

TEST_P(encoder_property, matches_the_plain_encoder_for_tries_with_wide_nodes)
{
    for (const u32 symbols : {30U, 34U, 60U, 245U, 248U, 256U}) {
        test::random_source random(symbols);
        bytes block(9000);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols));
        while (block.size() < 18000) {
            // Copies of 2 to 13 bytes.
            const u32 from = random.below(9000);
            const u32 len = 2 + random.below(12);
            for (u32 i = 0; i < len; ++i) block.push_back(block[from + i]);
        }
        ASSERT_NO_FATAL_FAILURE(check(block, 14, 2, 2, std::to_string(symbols) + " symbols"));
    }
}

INSTANTIATE_TEST_SUITE_P(all, encoder_property, testing::ValuesIn(test::cells_of(1, 5, 0, 9)),
                         test::cell_name);

/// The levels that search by hash values.
class hash_encoder_property : public encoder_property {};

TEST_P(hash_encoder_property, matches_the_plain_encoder_with_a_small_table)
{
    for (const auto& shape : test::all_shapes())
        ASSERT_NO_FATAL_FAILURE(check(shape.make(65535, 5), 10, default_chain_bits, 0, shape.name));
}

INSTANTIATE_TEST_SUITE_P(all, hash_encoder_property,
                         testing::ValuesIn(test::cells_of(1, 5, 0, first_priced_level - 1)),
                         test::cell_name);

/// The methods with their own codes for long distances.
class far_encoder_property : public encoder_property {};

TEST_P(far_encoder_property, finds_matches_at_distances_of_600000)
{
    // 600,000 random bytes, then the first 500 of them again.
    bytes block = find_shape("random").make(600000, 9);
    block.insert(block.end(), block.begin(), block.begin() + 500);
    block.insert(block.end(), 100000, 1); // makes the block compressible
    EXPECT_LT(
        test::encode(block, test::parameters_of(GetParam().method, GetParam().level, 22)).size(),
        block.size());
    ASSERT_NO_FATAL_FAILURE(check(block, 22, default_chain_bits, 0, "random"));
}

INSTANTIATE_TEST_SUITE_P(all, far_encoder_property, testing::ValuesIn(test::cells_of(1, 2, 0, 9)),
                         test::cell_name);

} // namespace
} // namespace quarnex
