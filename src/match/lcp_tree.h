// match/lcp_tree.h - the tree of a block's LCP intervals, for searches in the order of the text
//
// Each interval holds the latest position that was entered into it.  For a position p, the
// intervals that contain it lie on the path from its leaf to the root, with falling lengths; the
// one of length L holds the latest earlier position that shares at least L bytes with p, and
// exactly L if the interval below holds another.  So one walk up the path finds the nearest earlier
// match of each length, and enters p.  The tree itself is known before the walk: it never changes.
//
// Memory: 12 bytes per position at any time.  A node has 8 bytes: the interval around it, the
// latest position and the length.  Building the tree takes the suffix array, the LCP array, and for
// each node and leaf the interval around it.  With 25 bits for a position, all this fits into the
// same three words of 32 bits per position:
//
//     array         index   while the tree is built               afterwards
//     by_position   p       around leaf p; flags of node p        around leaf p
//     room          p       around node p; its length             half of a node
//     room          n + k   suffix array; LCP array               half of a node
//
// Numbering: a node has the number of the position that makes it branch in the order of the text,
// the second smallest of the first positions of its children.  These are different for all nodes.
// The nodes of neighbouring positions are the suffix links of each other, nearly always with
// neighbouring numbers, so that a walk finds much of its path in the cache.
#pragma once

#include "match/suffix_array.h"

#include <array>

namespace quarnex {

/// Largest block with a tree.
inline constexpr u32 max_tree_block = 1U << 25;

/// Whether a block can have a tree.  Where addresses have 32 bits, its two pieces of memory may not
/// fit.
constexpr bool can_have_tree(u32 size)
{
    return sizeof(void*) > sizeof(u32) && size <= max_tree_block;
}

/// Memory of a tree and of what it is built from, for each byte of the block.
inline constexpr u32 tree_bytes = 12;

/// Common prefixes are cut to this length.
inline constexpr u32 max_tree_length = 256;

/// The scale of an LCP array for a tree.
inline constexpr lcp_scale tree_scale{1, max_tree_length};

/// A number of a node; 0 is the root, which isn't stored.
using tree_ref = u32;
inline constexpr tree_ref tree_root = 0;

/// A node in one word.
struct tree_node {
    static constexpr u32 last_at = 8, last_bits = 26;
    static constexpr u32 parent_at = 39;
    static constexpr u64 last_mask = ((u64{1} << last_bits) - 1) << last_at;

    /// More children than a set of followers notes (nearest_tree.h).  The number of the interval
    /// around is replaced by an index.
    static constexpr u64 wide = u64{1} << 34;
    /// Of the greatest length, and directly in an interval one byte shorter.
    static constexpr u64 full_key = u64{1} << 35;
    /// One byte shorter than the greatest length, and around a full key.
    static constexpr u64 fork = u64{1} << 36;
    /// Free for a search.
    static constexpr u64 mark = u64{1} << 37;
    /// More than the given number of members.
    static constexpr u64 large = u64{1} << 38;

    u64 word;

    u32 length() const { return static_cast<u32>(word & 0xFF) + 1; }
    u32 last() const { return static_cast<u32>((word & last_mask) >> last_at); }
    tree_ref parent() const { return static_cast<tree_ref>(word >> parent_at); }
    tree_node with_last(u32 pos) const { return {(word & ~last_mask) | u64{pos} << last_at}; }
};

/// What a tree is built for.
struct tree_options {
    u32 min_length;  // shorter intervals are left out; 1 or more
    u32 max_members; // nodes with more are `large`
    bool wide_nodes; // nodes with wide_children are `wide`
};

/// Children of a wide node: more than a node of the trie has room for without being full.
inline constexpr u32 wide_children = 248;

/// True if an interval of `length` bytes has wide_children or more.
bool has_wide_interval(const suffix_arrays& arrays, u32 length);

/// Estimates, from a part of the suffix array, how many nodes that aren't large a position has on
/// its path, on average.
u32 average_small_nodes(const suffix_arrays& arrays, const tree_options& options);

/// The tree of a block.
class lcp_tree {
  public:
    /// Details of a wide node.
    struct wide_node {
        tree_ref parent;
        bool direct;  // one byte longer than the interval around it
        u32 children; // for the search
        u32 noted;    // for the search
    };

    /// Builds the tree of a block, in the memory of its arrays, which are left empty, and that for
    /// wide nodes from `source`.  Returns false without memory.
    [[nodiscard]] bool build(const block_text& text, suffix_arrays& arrays,
                             const tree_options& options, const allocator& source);

    /// How many large nodes a position has on its path, on average.
    u32 average_large_nodes() const { return average_large_nodes_; }

    tree_ref leaf(u32 pos) const { return leaf_[pos]; }
    void set_leaf(u32 pos, u32 value) { leaf_[pos] = value; }
    tree_node node(tree_ref ref) const { return {load_u64(nodes_ + usize{ref} * sizeof(u64))}; }
    void set_node(tree_ref ref, tree_node node)
    {
        store_u64(nodes_ + usize{ref} * sizeof(u64), node.word);
    }
    wide_node& wide(u32 index) { return wide_[index]; }

    /// Prefetches nodes of the positions after `pos`, which is called for each in turn.
    [[gnu::always_inline]] void prefetch_after(u32 pos)
    {
        start_scout(pos + positions_past);
        for (u32 distance : {21U, 18U, 15U, 12U, 9U, 6U, 3U}) {
            tree_ref& at = scouts_[(pos + distance) % scouts_.size()];
            at = node(at).parent();
            prefetch(at);
        }
    }

    /// The memory of nodes and leaves, for other use after the search.
    owned_array<u32> nodes_memory;
    owned_array<u32> leaves_memory;

  private:
    void join_words(const suffix_arrays& arrays);
    void start_scout(u32 pos)
    {
        const tree_ref ref = leaf_[pos];
        scouts_[pos % scouts_.size()] = ref;
        prefetch(ref);
    }
    void prefetch(tree_ref ref) const { __builtin_prefetch(nodes_ + usize{ref} * sizeof(u64), 1); }

    u8* nodes_ = nullptr;
    u32* leaf_ = nullptr;
    owned_array<wide_node> wide_;
    u32 average_large_nodes_ = 0;
    std::array<tree_ref, 64> scouts_{};
};

} // namespace quarnex
