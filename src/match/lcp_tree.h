// match/lcp_tree.h - the tree of a block's LCP intervals, walked position by position
//
// Each interval holds the latest position that was entered into it.  For a position p, the
// intervals that contain it lie on the path from its leaf to the root, with decreasing lengths; the
// one of length L holds the latest earlier position that shares at least L bytes with p, and
// exactly L if the interval below holds another.  So one walk up the path finds the nearest earlier
// match of each length, and enters p.  The shape of the tree is fixed before the first walk.
//
// Memory: 12 bytes per position at any time.  A node has 8 bytes: its parent, the latest position
// and the length.  Building the tree takes the suffix array, the LCP array, and the parent of each
// node and leaf.  With 25 bits for a position, all this fits into the same three words of 32 bits
// per position:
//
//     array         index   while the tree is built               afterwards
//     by_position   p       parent of leaf p; flags of node p     parent of leaf p
//     room          p       parent of node p; its length          half of a node
//     room          n + k   suffix array; LCP array               half of a node
//
// Numbering: the number of a node is the position at which it first branches when positions are
// entered in ascending order: the second smallest of the first positions of its children.  No two
// nodes have the same.  The nodes on the path of p + 1 are mostly the suffix links of those on the
// path of p, and nearly always have numbers larger by one, so a walk finds much of its path in the
// cache.
#pragma once

#include "match/suffix_array.h"

#include <array>

namespace quarnex {

/// Bits of a position in the words of a tree.
inline constexpr u32 tree_position_bits = 25;
/// Largest block with a tree.
inline constexpr u32 max_tree_block = 1U << tree_position_bits;

/// True if a block can have a tree.  In 32-bit programs its two arrays may not fit into the address
/// space.
constexpr bool can_have_tree(u32 size)
{
    return sizeof(void*) > sizeof(u32) && size <= max_tree_block;
}

/// Common prefixes are capped at this length.
inline constexpr u32 max_tree_length = 256;

/// The scale of an LCP array for a tree.
inline constexpr lcp_scale tree_scale{1, max_tree_length};

/// The number of a node; 0 is the root, which isn't stored.
using tree_ref = u32;
inline constexpr tree_ref tree_root = 0;

/// A node in one word.
struct tree_node {
    static constexpr u32 last_at = 8, last_bits = 26;
    static constexpr u32 parent_at = 39;
    static constexpr u64 last_mask = ((u64{1} << last_bits) - 1) << last_at;

    /// Has wide_children or more.  The parent field holds an index for lcp_tree::wide() instead.
    static constexpr u64 wide = u64{1} << 34;
    /// Has max_tree_length bytes, and its parent one byte less.
    static constexpr u64 full_key = u64{1} << 35;
    /// Is the parent of a full_key.
    static constexpr u64 fork = u64{1} << 36;
    /// For use by a search.
    static constexpr u64 mark = u64{1} << 37;
    /// Has more than tree_options::max_members members.
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
    bool wide_nodes; // nodes with wide_children or more are `wide`
};

/// A node with at least this many children is wide: a branch of the trie doesn't note a position
/// that adds the 248th child or a later one (nearest_tree.h).
inline constexpr u32 wide_children = 248;

/// True if an interval of `length` bytes has wide_children or more.
bool has_wide_interval(const suffix_arrays& arrays, u32 length);

/// Estimates, from a part of the suffix array, the average number of nodes on the path of a
/// position that aren't large.
u32 average_small_nodes(const suffix_arrays& arrays, const tree_options& options);

/// The tree of a block.
class lcp_tree {
  public:
    /// Details of a wide node.
    struct wide_node {
        tree_ref parent;
        bool direct;  // one byte longer than its parent
        u32 children; // for the search
        u32 noted;    // for the search
    };

    /// Builds the tree of a block in the memory of `arrays`, which it takes over.  Allocates wide
    /// nodes from `source`; returns false without memory for them.
    [[nodiscard]] bool build(const block_text& text, suffix_arrays& arrays,
                             const tree_options& options, const allocator& source);

    /// Memory for a tree of `size` positions and for what it is built from, without wide nodes, in
    /// bytes.
    static constexpr u64 memory_for(u32 size)
    {
        return (u64{3} * size + prefetch_padding) * sizeof(u32);
    }

    /// The average number of large nodes on the path of a position.
    u32 average_large_nodes() const { return average_large_nodes_; }

    tree_ref leaf(u32 pos) const { return leaf_[pos]; }
    void set_leaf(u32 pos, u32 value) { leaf_[pos] = value; }
    tree_node node(tree_ref ref) const { return {load_u64(nodes_ + usize{ref} * sizeof(u64))}; }
    void set_node(tree_ref ref, tree_node node)
    {
        store_u64(nodes_ + usize{ref} * sizeof(u64), node.word);
    }
    wide_node& wide(u32 index) { return wide_[index]; }

    /// Prefetches nodes of the next 24 positions: eight on the path of each, one in every third
    /// call.  Called for each position in turn.
    [[gnu::always_inline]] void prefetch_after(u32 pos)
    {
        constexpr u32 step = 3;
        static_assert(prefetch_padding % step == 0 && prefetch_padding < max_cursors);
        start_cursor(pos + prefetch_padding);
        for (u32 distance = prefetch_padding - step; distance != 0; distance -= step) {
            tree_ref& at = prefetch_cursors_[(pos + distance) % prefetch_cursors_.size()];
            at = node(at).parent();
            prefetch(at);
        }
    }

    /// The memory of nodes and leaves, for other use after the search.
    owned_array<u32> nodes_memory;
    owned_array<u32> leaves_memory;

  private:
    static constexpr u32 max_cursors = 64;

    void join_words(const suffix_arrays& arrays);
    void start_cursor(u32 pos)
    {
        const tree_ref ref = leaf_[pos];
        prefetch_cursors_[pos % prefetch_cursors_.size()] = ref;
        prefetch(ref);
    }
    void prefetch(tree_ref ref) const { __builtin_prefetch(nodes_ + usize{ref} * sizeof(u64), 1); }

    u8* nodes_ = nullptr;
    u32* leaf_ = nullptr;
    owned_array<wide_node> wide_;
    u32 average_large_nodes_ = 0;
    std::array<tree_ref, max_cursors> prefetch_cursors_{};
};

} // namespace quarnex
