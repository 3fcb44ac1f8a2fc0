// The trie when memory runs out, and how much it takes.
#include "match/trie_fixture.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::block_trie;
using test::bytes;
using test::expect_valid_records;
using test::records;

constexpr u64 mib = 1 << 20;

/// Expects all records of a block to be valid with `memory` bytes.  Returns the sum of the longest
/// lengths.
u64 expect_valid_records_within(u64 memory, const bytes& block)
{
    block_trie tree(block, memory);
    u64 total = 0;
    for (u32 pos = 1; pos < block.size(); ++pos) {
        const records found = tree.matches(pos);
        expect_valid_records(found, block, pos);
        if (testing::Test::HasFatalFailure()) return total;
        if (!found.empty()) total += found.back().len;
    }
    return total;
}

TEST(trie, without_any_memory_finds_nothing)
{
    for (const u64 memory : {u64{0}, mib - 1})
        EXPECT_EQ(expect_valid_records_within(memory, bytes(3000)), 0U);
}

TEST(trie, with_little_memory_has_only_valid_records)
{
    for (const auto& shape : test::all_shapes()) {
        const bytes block = shape.make(100000, 8);
        const u64 all = expect_valid_records_within(u64{64} << 20, block);
        u64 before = 0;
        for (const u64 memory : {mib, 2 * mib + 12345}) {
            const u64 reached = expect_valid_records_within(memory, block);
            EXPECT_LE(before, reached) << shape.name;
            EXPECT_LE(reached, all) << shape.name;
            before = reached;
        }
    }
}

TEST(trie, finds_what_it_inserted_before_its_memory_was_used_up)
{
    // What was inserted first stays.
    const bytes part = test::find_shape("text").make(2000, 9);
    const bytes block =
        test::joined({part, test::find_shape("random").make(100000, 9), part, bytes(300)});
    block_trie tree(block, mib);
    const u32 second = 102000;
    tree.insert(1, second);
    for (u32 pos = second + 1; pos < second + 1500; pos += 97) {
        const records found = tree.matches(pos);
        ASSERT_FALSE(found.empty());
        EXPECT_EQ(found.back().pos, pos - second);
    }
}

/// Copies of copies, each with about one byte in `period` replaced: the input with the most memory
/// per byte known.
bytes mutated_copies(usize size, usize first_size, u32 period, u32 symbols)
{
    test::random_source source(1);
    bytes block;
    while (block.size() < first_size) block.push_back(static_cast<u8>(source.below(symbols)));
    for (u32 copies = 1; block.size() < size; ++copies) {
        const usize start = source.below(copies) * first_size;
        for (usize i = 0; i < first_size; ++i) {
            const bool changes = source.below(period) == 0;
            block.push_back(changes ? static_cast<u8>(source.below(symbols)) : block[start + i]);
        }
    }
    return block;
}

TEST(trie, finds_everything_with_36_bytes_per_position)
{
    for (const u32 period : {30U, 60U}) {
        for (const u32 symbols : {2U, 4U, 256U}) {
            const bytes block = mutated_copies(600000, 30000, period, symbols);
            block_trie roomy(block, u64{128} * block.size());
            block_trie narrow(block, u64{36} * block.size());
            for (u32 pos = 1; pos < block.size(); ++pos)
                ASSERT_EQ(narrow.matches(pos), roomy.matches(pos)) << pos;
        }
    }
}

} // namespace
} // namespace quarnex
