#include "match/lcp_tree.h"

#include "match/lcp_intervals.h"
#include "match/match_lists.h"
#include "match/plain_suffixes.h"
#include "match/wide_blocks.h"
#include "support/codec_runs.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// A node by its definition.
struct plain_node {
    test::plain_interval interval;
    u32 number = 0;
    u32 parent = tree_root;
    u32 parent_length = 0;
    u32 children = 0;
    bool fork = false;

    bool wide() const { return children >= wide_children && interval.length < max_tree_length; }
    u32 members() const { return interval.end - interval.first; }
};

/// The tree by its definition.
struct plain_tree {
    std::vector<plain_node> nodes; // inner ones first
    std::vector<u32> leaf;         // by position: the number of the node around it

    plain_tree(const bytes& block, u32 min_length)
        : leaf(block.size(), tree_root), sa_(test::plain_suffix_array(block)),
          lcp_(test::plain_lcp(block, sa_))
    {
        for (u32& length : lcp_)
            length = length < min_length ? 0 : std::min(length, max_tree_length);
        for (const auto& interval : test::plain_intervals(lcp_)) {
            plain_node& node = nodes.emplace_back(plain_node{interval});
            number(node);
            for (u32 k = interval.first; k < interval.end; ++k)
                if (leaf[sa_[k]] == tree_root) leaf[sa_[k]] = node.number;
        }
        for (usize k = 0; k < nodes.size(); ++k) find_parent(k);
    }

  private:
    /// Numbers a node by the second smallest of its children's first positions.
    void number(plain_node& node) const
    {
        std::vector<u32> firsts;
        for (u32 k = node.interval.first; k < node.interval.end; ++k) {
            if (k == node.interval.first || lcp_[k] == node.interval.length)
                firsts.push_back(sa_[k]);
            firsts.back() = std::min(firsts.back(), sa_[k]);
        }
        std::sort(firsts.begin(), firsts.end());
        node.number = firsts[1];
        node.children = static_cast<u32>(firsts.size());
    }

    /// The node around it is the first of the next ones that contains it.
    void find_parent(usize k)
    {
        plain_node& node = nodes[k];
        const auto parent = std::find_if(nodes.begin() + static_cast<std::ptrdiff_t>(k) + 1,
                                         nodes.end(), [&](const plain_node& other) {
                                             return other.interval.first <= node.interval.first &&
                                                    other.interval.end >= node.interval.end;
                                         });
        if (parent == nodes.end()) return;
        node.parent = parent->number;
        node.parent_length = parent->interval.length;
        if (node.interval.length == max_tree_length &&
            parent->interval.length == max_tree_length - 1)
            parent->fork = true;
    }

    std::vector<u32> sa_;
    std::vector<u32> lcp_;
};

/// The suffix array and LCP array of a block, with room for a tree.
suffix_arrays arrays_of(const block_text& text, lcp_scale scale)
{
    suffix_arrays arrays;
    EXPECT_TRUE(arrays.allocate(text.size, true, system_allocator));
    EXPECT_TRUE(arrays.sort(text, scale));
    return arrays;
}

void expect_plain_node(lcp_tree& tree, const plain_node& plain, const tree_options& options)
{
    const tree_node node = tree.node(plain.number);
    EXPECT_EQ(node.length(), plain.interval.length);
    EXPECT_EQ(node.last(), 0U);
    const bool wide = options.wide_nodes && plain.wide();
    EXPECT_EQ((node.word & tree_node::wide) != 0, wide);
    if (wide) {
        const lcp_tree::wide_node& details = tree.wide(node.parent());
        EXPECT_EQ(details.parent, plain.parent);
        EXPECT_EQ(details.direct, plain.interval.length == plain.parent_length + 1);
        EXPECT_EQ(details.children, 0U);
        EXPECT_EQ(details.noted, 0U);
    } else {
        EXPECT_EQ(node.parent(), plain.parent);
    }
    EXPECT_EQ((node.word & tree_node::large) != 0, plain.members() > options.max_members);
    EXPECT_EQ((node.word & tree_node::full_key) != 0,
              plain.interval.length == max_tree_length &&
                  plain.parent_length == max_tree_length - 1);
    EXPECT_EQ((node.word & tree_node::fork) != 0, plain.fork);
    EXPECT_EQ(node.word & tree_node::mark, 0U);
}

void expect_plain_tree(const bytes& block, const tree_options& options, lcp_scale scale,
                       const std::string& name)
{
    const auto size = static_cast<u32>(block.size());
    const auto buffer = test::exact_buffer(size + search_reads_past);
    std::copy(block.begin(), block.end(), buffer.get());
    const block_text text{buffer.get(), size};
    suffix_arrays arrays = arrays_of(text, scale);
    const plain_tree plain(block, options.min_length);
    lcp_tree tree;
    ASSERT_TRUE(tree.build(text, arrays, options, system_allocator));
    u64 large = 0;
    for (const plain_node& node : plain.nodes) {
        expect_plain_node(tree, node, options);
        ASSERT_FALSE(testing::Test::HasFailure()) << name << ' ' << size << ' ' << node.number;
        if (node.members() > options.max_members) large += node.members();
    }
    for (u32 pos = 0; pos < size; ++pos) ASSERT_EQ(tree.leaf(pos), plain.leaf[pos]) << name << pos;
    for (u32 pos = size; pos < size + prefetch_padding; ++pos) {
        ASSERT_EQ(tree.leaf(pos), tree_root);
    }
    ASSERT_EQ(tree.average_large_nodes(), large / size);
}

constexpr u32 no_limit = UINT32_MAX;

TEST(lcp_tree, equals_the_plain_tree_for_all_shapes_and_minimum_lengths)
{
    for (const auto& shape : test::all_shapes()) {
        for (u32 size = 1; size <= 600; size += 1 + size / 7) {
            const bytes block = shape.make(size, size);
            for (const u32 least : {1U, 2U, 3U, 4U})
                ASSERT_NO_FATAL_FAILURE(
                    expect_plain_tree(block, {least, 20, true}, tree_scale, shape.name));
            // With the cap of the match lists there are no nodes of 256 bytes, which the plain tree
            // has; blocks of up to 255 bytes have none.
            if (size <= 255) {
                ASSERT_NO_FATAL_FAILURE(
                    expect_plain_tree(block, {3, 20, false}, match_list_scale, shape.name));
            }
        }
    }
}

TEST(lcp_tree, equals_the_plain_tree_for_random_symbols)
{
    test::random_source random(1);
    for (u32 round = 0; round < 400; ++round) {
        bytes block(1 + random.below(300));
        const u32 symbols = 1 + random.below(5);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols) * 85);
        ASSERT_NO_FATAL_FAILURE(expect_plain_tree(
            block, {1 + random.below(3), random.below(40), true}, tree_scale, "symbols"));
    }
}

TEST(lcp_tree, has_wide_nodes_of_248_children_with_direct_or_distant_parents)
{
    for (const u32 depth : {1U, 2U, 3U, 255U, 256U}) {
        for (const u32 children : {247U, 248U}) {
            for (const bool direct : {false, true}) {
                const bytes block = test::wide_branch(depth, children, 300, direct, children);
                for (u32 least = 1; least <= (depth < 10 ? 3 : 1); ++least)
                    ASSERT_NO_FATAL_FAILURE(expect_plain_tree(block, {least, no_limit, true},
                                                              tree_scale, "a wide branch"));
                ASSERT_NO_FATAL_FAILURE(
                    expect_plain_tree(block, {3, no_limit, false}, tree_scale, "a wide branch"));
            }
        }
    }
}

TEST(lcp_tree, marks_forks_and_full_keys)
{
    for (u64 seed = 1; seed <= 10; ++seed)
        ASSERT_NO_FATAL_FAILURE(expect_plain_tree(test::forked_keys(12, seed), {2, no_limit, true},
                                                  tree_scale, "forked keys"));
}

TEST(lcp_tree, knows_if_it_has_a_wide_interval_of_some_length)
{
    for (const u32 depth : {1U, 2U, 3U, 4U}) {
        for (const u32 children : {247U, 248U}) {
            const bytes block = test::wide_branch(depth, children, children, true, 1);
            const auto buffer = test::exact_buffer(block.size() + search_reads_past);
            std::copy(block.begin(), block.end(), buffer.get());
            const suffix_arrays arrays =
                arrays_of({buffer.get(), static_cast<u32>(block.size())}, tree_scale);
            for (const u32 length : {2U, 3U, 4U}) {
                bool expected = false;
                for (const plain_node& node : plain_tree(block, 1).nodes)
                    expected = expected ||
                               (node.interval.length == length && node.children >= wide_children);
                EXPECT_EQ(has_wide_interval(arrays, length), expected) << depth << ' ' << length;
                if (length == depth) {
                    EXPECT_EQ(expected, children == 248);
                }
            }
        }
    }
}

TEST(lcp_tree, estimates_how_many_small_nodes_a_position_has)
{
    const tree_options options{3, 1000, false};
    for (const auto& shape : test::all_shapes()) {
        // Blocks of up to one piece are counted exactly.
        for (const u32 size : {1U, 200U, 3000U}) {
            const bytes block = shape.make(size, 4);
            const auto buffer = test::exact_buffer(size + search_reads_past);
            std::copy(block.begin(), block.end(), buffer.get());
            std::vector<u32> lcp = test::plain_lcp(block, test::plain_suffix_array(block));
            for (u32& length : lcp) length = length < 3 ? 0 : std::min(length, max_listed_match);
            u64 total = 0;
            for (const auto& interval : test::plain_intervals(lcp))
                if (interval.end - interval.first <= 1000) total += interval.end - interval.first;
            const suffix_arrays arrays = arrays_of({buffer.get(), size}, match_list_scale);
            EXPECT_EQ(average_small_nodes(arrays, options), total / size) << shape.name << size;
        }
    }
}

TEST(lcp_tree, estimates_large_blocks_by_a_part)
{
    // In a block that is the same everywhere, a part has nearly the average.
    const bytes block = test::find_shape("text").make(400000, 4);
    const auto buffer = test::exact_buffer(block.size() + search_reads_past);
    std::copy(block.begin(), block.end(), buffer.get());
    const suffix_arrays arrays =
        arrays_of({buffer.get(), static_cast<u32>(block.size())}, match_list_scale);
    const tree_options options{3, 1000, false};
    std::vector<u32> lcp(arrays.lcp, arrays.lcp + arrays.size);
    for (u32& length : lcp)
        if (length < 3) length = 0;
    struct counter {
        u64 total = 0;
        u32 add(u32) { return 0; }
        void top(u32) {}
        void close(const lcp_interval& ending, u32 end)
        {
            if (end - ending.first <= 1000) total += end - ending.first;
        }
    } all;
    visit_lcp_intervals(
        arrays.size, [&](u32 k) { return lcp[k]; }, all);
    const auto average = static_cast<u32>(all.total / arrays.size);
    EXPECT_GE(average, 3U);
    const u32 estimate = average_small_nodes(arrays, options);
    EXPECT_GE(estimate + 2, average);
    EXPECT_LE(estimate, average + 1);
}

TEST(lcp_tree, is_not_built_without_memory_for_wide_nodes)
{
    const bytes block = test::wide_branch(3, 256, 300, true, 1);
    const auto buffer = test::exact_buffer(block.size() + search_reads_past);
    std::copy(block.begin(), block.end(), buffer.get());
    const block_text text{buffer.get(), static_cast<u32>(block.size())};
    suffix_arrays arrays = arrays_of(text, tree_scale);
    test::limited_allocator memory;
    memory.refuse_call(1);
    lcp_tree tree;
    EXPECT_FALSE(tree.build(text, arrays, {2, no_limit, true}, memory.get()));
    EXPECT_EQ(memory.in_use(), 0U);
}

} // namespace
} // namespace quarnex
