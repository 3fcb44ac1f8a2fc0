// match/nearest_tree.h - the matches of level 9 from the tree of LCP intervals
//
// Finds the same matches as the trie (trie.h), and is faster: a descent in the trie compares the
// bytes of the text to find each node, while a path of the tree is known from its leaf.
//
// The trie doesn't always report the nearest position, and this search reports the same one:
//
// - A branch with 247 children or more doesn't note a position that adds a child.  So a `wide` node
//   of the tree keeps the position that the branch would hold, besides the latest one.  The trie
//   reports it if the branch is directly below another one, hence one byte deeper; otherwise there
//   is a path between them, which holds the latest position.
// - The leaf of a key of 256 bytes is replaced by the next position with the same key, unless it is
//   directly below a branch 255 bytes deep.  There the leaf keeps its position.  The branch is made
//   when a second key is inserted: the leaf of the first key keeps the position that it has then,
//   the leaf of any other key its first position.
//
// A third case isn't reproduced: near the end of the block, positions whose keys end inside a path
// affect lookups of earlier ones.  So positions must be entered in ascending order (some can be
// left out), and each at most once.
#pragma once

#include "match/lcp_tree.h"
#include "match/trie.h"

#include <span>

namespace quarnex {

class nearest_tree {
  public:
    /// Upper bound on the memory for a block of `size` bytes, in bytes.
    static constexpr u64 memory_for(u32 size)
    {
        return lcp_tree::memory_for(size) +
               size / (wide_children - 1) * u64{sizeof(lcp_tree::wide_node)};
    }

    /// Builds the tree of a block.  Matches of less than `min_length` bytes, 2 or more, are not
    /// needed.  Returns false without memory, or if the walks would be too long.
    [[nodiscard]] bool build(const block_text& text, u32 min_length, const allocator& source);

    /// Enters `count` positions from `pos` on.
    void insert(u32 pos, u32 count);

    /// Marks the positions from `first` up to but not including `last` as never to be entered.
    void leave_out(u32 first, u32 last)
    {
        for (; first < last; ++first) tree_.set_leaf(first, left_out);
    }
    bool is_left_out(u32 pos) const { return tree_.leaf(pos) == left_out; }

    /// Finds matches among the positions entered so far, then enters `pos`.  The records come in
    /// order of increasing length.  Lengths are exact up to max_tree_length - 1; several records of
    /// max_tree_length can follow, whose matches may be longer.
    std::span<const trie_record> find(u32 pos, trie_records& records);

  private:
    /// Not the number of a node.
    static constexpr tree_ref left_out = UINT32_MAX;

    template <bool Report>
    trie_record* enter(u32 pos, trie_record* out);
    template <bool Report>
    trie_record* enter_like_trie(u32 pos, tree_ref ref, u32 below, trie_record* out);

    const u8* text_ = nullptr;
    u32 size_ = 0;
    lcp_tree tree_;
    bool lengths_inexact_ = false; // of the records of this position
};

} // namespace quarnex
