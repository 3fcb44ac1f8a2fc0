#include "match/ring_search.h"

#include "match/near_blocks.h"
#include "support/shapes.h"
#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::far_and_near_block;
using test::literals;
using test::plain_token;
using test::spelled_out;
using test::tokens_of;

constexpr auto in_order = search_buckets<ring_table, test::token_recorder<1>>;
constexpr auto latest_first =
    search_buckets<ring_table, test::token_recorder<1>, walk_latest_first>;
constexpr auto rings = search_rings<test::token_recorder<1>>;

/// Compares the two walks of a block with rings of several sizes.
void expect_the_same_tokens(const bytes& block, i32 hash_bits)
{
    for (const i32 chain_bits : {1, 2, 3, 4, 6, 8}) {
        const search_bits bits{hash_bits, chain_bits};
        EXPECT_TRUE(tokens_of<1>(latest_first, block, bits) == tokens_of<1>(in_order, block, bits))
            << block.size() << " bytes, " << chain_bits << " chain bits";
    }
}

TEST(walk_latest_first, equals_the_walk_in_order_for_all_sizes_up_to_200)
{
    for (const auto& shape : test::all_shapes()) {
        SCOPED_TRACE(shape.name);
        for (usize size = 0; size <= 200; ++size)
            expect_the_same_tokens(shape.make(size, size), 10);
    }
}

TEST(walk_latest_first, equals_the_walk_in_order_for_large_blocks)
{
    for (const auto& shape : test::all_shapes()) {
        SCOPED_TRACE(shape.name);
        expect_the_same_tokens(shape.make(65536, 1), 8);
        expect_the_same_tokens(shape.make(150000, 2), 16);
    }
}

/// Copies of earlier bytes, near and far, with lengths around those of the quick tests.
bytes block_of_copies(u32 size, u64 seed)
{
    test::random_source random(seed);
    bytes block{1};
    while (block.size() < size) {
        if (random.below(4) == 0) block.push_back(static_cast<u8>(random.below(3)));
        const u32 far = random.below(2) == 0 ? 40 : static_cast<u32>(block.size());
        usize from = block.size() - 1 - random.below(std::min(far, u32(block.size())));
        for (u32 len = 3 + random.below(9); len != 0; --len) block.push_back(block[from++]);
        block.push_back(static_cast<u8>(random.below(250)));
    }
    return block;
}

TEST(walk_latest_first, equals_the_walk_in_order_with_many_candidates_of_similar_lengths)
{
    for (u64 seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        expect_the_same_tokens(block_of_copies(5000, seed), 9);
        expect_the_same_tokens(block_of_copies(20000, seed), 14);
    }
}

TEST(ring_search, finds_a_much_nearer_match_one_byte_shorter_among_8_candidates)
{
    EXPECT_EQ(tokens_of<1>(rings, far_and_near_block(48), {16, 3}),
              spelled_out({literals(42), {4, 43}, literals(1), {4, 5}, literals(2)}));
    EXPECT_EQ(tokens_of<1>(rings, far_and_near_block(47), {16, 3}),
              spelled_out({literals(41), {4, 42}, literals(1), {5, 47}, literals(1)}));
}

TEST(ring_search, walks_in_order_in_blocks_of_more_than_16_mib)
{
    // walk_latest_first asserts that a block has at most max_positions bytes.
    bytes block(walk_latest_first::max_positions);
    const bytes rest = bytes_of("abcd-abcd+abcd");
    block.insert(block.end(), rest.begin(), rest.end());
    EXPECT_EQ(tokens_of<1>(rings, block, {20, 3}), tokens_of<1>(in_order, block, {20, 3}));
}

} // namespace
} // namespace quarnex
