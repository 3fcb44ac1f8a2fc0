#include "match/nearest_tree.h"

#include "match/used_matches.h"
#include "match/wide_blocks.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::search_step;
using steps = std::vector<search_step>;

/// A nearest_tree and a trie, which are asked the same.
class tree_visitor {
  public:
    tree_visitor(nearest_tree& tree, const block_text& text, u32 min_length)
        : tree_(tree), trie_(text, min_length)
    {
    }

    void find(u32 pos)
    {
        if (!failure_.empty()) return;
        failure_ = trie_.compare(tree_.find(pos, records_), max_tree_length, pos);
    }
    void insert(u32 pos, u32 count)
    {
        tree_.insert(pos, count);
        trie_.insert(pos, count);
    }
    const std::string& failure() const { return failure_; }

  private:
    nearest_tree& tree_;
    test::trie_reference trie_;
    trie_records records_;
    std::string failure_;
};

void expect_matches_of_the_trie(const bytes& block, u32 min_length, const steps& way,
                                const std::string& name)
{
    const auto size = static_cast<u32>(block.size());
    const auto text = test::text_for_trie(block);
    nearest_tree tree;
    ASSERT_TRUE(tree.build({text.get(), size}, min_length, system_allocator)) << name;
    tree_visitor visitor(tree, {text.get(), size}, min_length);
    test::follow_steps(size, way, visitor);
    ASSERT_EQ(visitor.failure(), "") << name << ", " << size << " bytes, from length " << min_length
                                     << testing::PrintToString(block);
}

const steps all_searched{{search_step::find, 1}};

/// Searches, insertions without search and positions left out.
steps random_steps(u64 seed)
{
    test::random_source random(seed);
    steps made;
    for (u32 k = 1 + random.below(12); k != 0; --k) {
        const u32 kind = random.below(8);
        made.push_back({kind < 5   ? search_step::find
                        : kind < 7 ? search_step::insert
                                   : search_step::leave_out,
                        1 + random.below(1U << random.below(9))});
    }
    made.push_back({search_step::find, 1 + random.below(30)});
    return made;
}

void expect_matches_of_the_trie_always(const bytes& block, u64 seed, const std::string& name)
{
    for (const u32 min_length : {2U, 3U}) {
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(block, min_length, all_searched, name));
        ASSERT_NO_FATAL_FAILURE(
            expect_matches_of_the_trie(block, min_length, random_steps(seed), name));
        ASSERT_NO_FATAL_FAILURE(
            expect_matches_of_the_trie(block, min_length, random_steps(seed + 1000), name));
    }
}

// Small cases

TEST(nearest_tree, finds_the_nearest_position_of_each_length)
{
    const bytes block = test::bytes_of("-abcd1abc2ab3abcde");
    const auto text = test::text_for_trie(block);
    nearest_tree tree;
    ASSERT_TRUE(tree.build({text.get(), 18}, 2, system_allocator));
    tree.insert(1, 12);
    trie_records room;
    const auto records = tree.find(13, room);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].length, 2U);
    EXPECT_EQ(records[0].pos, 10U);
    EXPECT_EQ(records[1].length, 3U);
    EXPECT_EQ(records[1].pos, 6U);
    EXPECT_EQ(records[2].length, 4U);
    EXPECT_EQ(records[2].pos, 1U);
}

TEST(nearest_tree, knows_which_positions_are_left_out)
{
    const bytes block = test::bytes_of("abababababab");
    const auto text = test::text_for_trie(block);
    nearest_tree tree;
    ASSERT_TRUE(tree.build({text.get(), 12}, 2, system_allocator));
    tree.insert(1, 3);
    tree.leave_out(4, 6);
    for (u32 pos = 0; pos < 12; ++pos) EXPECT_EQ(tree.is_left_out(pos), pos == 4 || pos == 5);
    trie_records room;
    const auto records = tree.find(6, room);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].length, 6U);
    EXPECT_EQ(records[0].pos, 2U);
}

TEST(nearest_tree, does_not_exist_without_memory)
{
    const bytes block = test::wide_branch(2, 256, 300, true, 1);
    const auto text = test::text_for_trie(block);
    for (u64 refused = 1; refused <= 3; ++refused) {
        test::limited_allocator memory;
        memory.refuse_call(refused);
        {
            nearest_tree tree;
            EXPECT_FALSE(tree.build({text.get(), static_cast<u32>(block.size())}, 2, memory.get()));
        }
        EXPECT_EQ(memory.in_use(), 0U);
    }
}

TEST(nearest_tree, is_not_built_if_many_large_intervals_are_around_the_positions)
{
    for (const u32 size : {30000U, 100000U}) {
        const bytes block(size);
        const auto text = test::text_for_trie(block);
        nearest_tree tree;
        EXPECT_FALSE(tree.build({text.get(), size}, 2, system_allocator));
    }
}

// Any blocks

TEST(nearest_tree, equals_the_trie_for_all_shapes_and_sizes_up_to_600)
{
    for (const auto& shape : test::all_shapes())
        for (u32 size = 1; size <= 600; size += 1 + size / 60)
            ASSERT_NO_FATAL_FAILURE(
                expect_matches_of_the_trie_always(shape.make(size, size), size, shape.name));
}

TEST(nearest_tree, equals_the_trie_for_larger_blocks_of_all_shapes)
{
    for (const auto& shape : test::all_shapes())
        for (const u32 size : {5000U, 16000U})
            ASSERT_NO_FATAL_FAILURE(
                expect_matches_of_the_trie_always(shape.make(size, size), size, shape.name));
    for (const char* name : {"text", "random", "records", "mixture", "de_bruijn"})
        ASSERT_NO_FATAL_FAILURE(
            expect_matches_of_the_trie_always(test::find_shape(name).make(200000, 5), 5, name));
}

TEST(nearest_tree, equals_the_trie_for_equal_bytes)
{
    for (u32 size = 250; size <= 270; ++size)
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(bytes(size, 7), size, "7"));
    for (u32 size = 505; size <= 520; ++size)
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(bytes(size), size, "0"));
}

TEST(nearest_tree, equals_the_trie_for_thousands_of_small_blocks)
{
    test::random_source random(1);
    for (u32 round = 0; round < 3000; ++round) {
        bytes block(1 + random.below(120));
        const u32 symbols = 1 + random.below(4);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols));
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(block, round, "few symbols"));
    }
}

TEST(nearest_tree, equals_the_trie_for_repetitions_with_errors)
{
    test::random_source random(4);
    for (const u32 period : {1U, 2U, 100U, 254U, 255U, 256U, 257U, 300U}) {
        for (const u32 rate : {150U, 300U, 600U}) {
            bytes block = test::find_shape("random").make(period, period);
            while (block.size() < 4000) {
                const u8 byte = block[block.size() - period];
                block.push_back(random.below(rate) == 0 ? static_cast<u8>(byte + 1) : byte);
            }
            ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(block, rate, "errors"));
        }
    }
}

// Branches of many children

TEST(nearest_tree, equals_the_trie_around_branches_of_many_children)
{
    for (const u32 depth : {1U, 2U, 3U, 4U, 8U}) {
        for (const u32 children : {245U, 246U, 247U, 248U, 249U, 256U}) {
            for (const bool direct : {false, true}) {
                for (u64 seed = 1; seed <= 3; ++seed) {
                    const bytes block = test::wide_branch(depth, children, 700, direct, seed);
                    ASSERT_NO_FATAL_FAILURE(
                        expect_matches_of_the_trie_always(block, seed, "a wide branch"));
                }
            }
        }
    }
}

TEST(nearest_tree, equals_the_trie_around_branches_of_many_children_at_256_bytes)
{
    for (const u32 depth : {254U, 255U, 256U})
        for (const u32 children : {247U, 248U})
            for (const bool direct : {false, true})
                ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(
                    test::wide_branch(depth, children, 400, direct, depth), depth,
                    "a wide branch"));
}

TEST(nearest_tree, equals_the_trie_where_wide_branches_follow_each_other)
{
    // Random bytes of which all pairs or all triples occur, and strings that repeat.
    for (u64 seed = 1; seed <= 6; ++seed) {
        test::random_source random(seed);
        bytes block;
        while (block.size() < 60000) {
            block.push_back(static_cast<u8>(random.below(4)));
            block.push_back(static_cast<u8>(random.below(256)));
            if (seed % 2 == 0 && random.below(2) == 0)
                block.push_back(static_cast<u8>(random.below(256)));
        }
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(block, seed, "pairs"));
    }
}

// Keys of 256 bytes

TEST(nearest_tree, equals_the_trie_for_keys_below_a_fork_of_255_bytes)
{
    for (u64 seed = 1; seed <= 300; ++seed)
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(
            test::forked_keys(3 + static_cast<u32>(seed % 20), seed), seed, "forked keys"));
}

/// A string of 255 bytes, followed by each of `ends` in turn.
bytes keys_of(const bytes& ends)
{
    const bytes key = test::find_shape("random").make(255, 3);
    bytes block{1};
    for (const u8 end : ends) {
        block.insert(block.end(), key.begin(), key.end());
        block.push_back(end);
    }
    return block;
}

TEST(nearest_tree, keeps_the_position_of_a_key_after_a_second_key_made_a_fork)
{
    // The first key is repeated, so that its latest position is noted; with the second key it
    // stays.
    const bytes ends{1, 1, 1, 2, 1, 2, 2, 1, 1, 3, 3, 1, 2, 3};
    const bytes block = keys_of(ends);
    ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(block, 1, "keys"));
    const auto text = test::text_for_trie(block);
    nearest_tree tree;
    ASSERT_TRUE(tree.build({text.get(), static_cast<u32>(block.size())}, 3, system_allocator));
    const auto key_at = [](u32 k) { return 1 + 256 * k; };
    trie_records room;
    tree.insert(1, key_at(2) - 1);
    EXPECT_EQ(tree.find(key_at(2), room).back().pos, key_at(1));
    tree.insert(key_at(2) + 1, key_at(4) - key_at(2) - 1);
    EXPECT_EQ(tree.find(key_at(4), room).back().pos, key_at(2));
    tree.insert(key_at(4) + 1, key_at(7) - key_at(4) - 1);
    EXPECT_EQ(tree.find(key_at(7), room).back().pos, key_at(2));
}

TEST(nearest_tree, equals_the_trie_for_any_order_of_forked_keys)
{
    test::random_source random(2);
    for (u32 round = 0; round < 100; ++round) {
        bytes ends(2 + random.below(14));
        const u32 symbols = 1 + random.below(4);
        for (u8& end : ends) end = static_cast<u8>(random.below(symbols));
        bytes block = keys_of(ends);
        block.resize(block.size() - random.below(300)); // keys that the block's end cuts
        ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie_always(block, round, "keys"));
    }
}

TEST(nearest_tree, equals_the_trie_for_a_wide_fork_of_255_bytes)
{
    test::random_source random(3);
    for (const u32 children : {246U, 247U, 248U, 256U}) {
        bytes ends(330);
        for (u32 k = 0; k < ends.size(); ++k)
            ends[k] = static_cast<u8>(k < children ? k : random.below(children));
        for (u32 k = 0; k < 40; ++k) ends.insert(ends.begin() + random.below(200), 0);
        ASSERT_NO_FATAL_FAILURE(
            expect_matches_of_the_trie_always(keys_of(ends), children, "a wide fork"));
    }
}

} // namespace
} // namespace quarnex
