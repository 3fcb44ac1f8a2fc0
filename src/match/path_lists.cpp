#include "match/path_lists.h"

#include <cassert>

namespace quarnex {
namespace {

/// Chooses the match of a position from the offers of its path, from the leaf up.
class path_match {
  public:
    explicit path_match(u32 pos) : pos_(pos) {}

    u32 length() const { return length_; }
    u32 at() const { return at_; }

    /// Offers the match at `last`, the nearest of `length` bytes.  Lengths decrease from offer to
    /// offer.
    void offer(u32 last, u32 length)
    {
        if (length_ != 0 && !replaces_match(length, pos_ - last, length_, pos_ - at_)) return;
        length_ = length;
        at_ = last;
    }

  private:
    u32 pos_;
    u32 length_ = 0;
    u32 at_ = 0;
};

/// Lists the matches of the `n` positions of a tree.  The word of a leaf becomes the position of
/// its match, with the low 7 bits of the length above it.  The top bit of the length is the mark of
/// the node with the same number.
match_lists list_paths(u32 n, lcp_tree& tree)
{
    constexpr u32 top_bit = 1 << (32 - tree_position_bits);
    // Nodes hold positions plus one; 0 is none.
    for (u32 pos = 0; pos < n; ++pos) {
        tree.prefetch_after(pos);
        path_match found(pos);
        u32 below = 0;
        tree_ref ref = tree.leaf(pos);
        tree_node node = tree.node(ref);
        // All positions are entered into small intervals, but only those without a match in an
        // inner interval into large ones.
        while (ref != tree_root && (node.word & tree_node::large) == 0) {
            tree.set_node(ref, node.with_last(pos + 1));
            const u32 last = node.last();
            if (last != below) found.offer(last - 1, node.length());
            below = last;
            ref = node.parent();
            node = tree.node(ref);
        }
        while (ref != tree_root && found.length() == 0) {
            node = tree.node(ref);
            tree.set_node(ref, node.with_last(pos + 1));
            if (node.last() != 0) found.offer(node.last() - 1, node.length());
            ref = node.parent();
        }
        tree.set_leaf(pos, found.at() | found.length() << tree_position_bits);
        const tree_node slot = tree.node(pos);
        tree.set_node(pos, {(slot.word & ~tree_node::mark) |
                            ((found.length() & top_bit) != 0 ? tree_node::mark : 0)});
    }
    match_lists lists{as_bytes(std::move(tree.nodes_memory)), std::move(tree.leaves_memory)};
    for (u32 pos = 0; pos < n; ++pos) {
        const u32 high = (tree.node(pos).word & tree_node::mark) != 0 ? top_bit : 0;
        lists.mlen[pos] = static_cast<u8>(lists.mpos[pos] >> tree_position_bits | high);
        lists.mpos[pos] &= max_tree_block - 1;
    }
    return lists;
}

} // namespace

match_lists path_match_lists(const block_text& text, suffix_arrays& arrays, const allocator& source)
{
    const u32 n = arrays.size;
    lcp_tree tree;
    [[maybe_unused]] const bool built = tree.build(text, arrays, path_list_options, source);
    assert(built); // without wide nodes it needs no memory
    return list_paths(n, tree);
}

} // namespace quarnex
