#include "match/nearest_tree.h"

#include <cassert>

namespace quarnex {
namespace {

/// Nodes with more members are likely to be in the cache, and so are the same nodes of a trie.
constexpr u32 large_interval = 16384;

/// With more large intervals around a position, on average, the trie is faster.
constexpr u32 max_large_nodes = 96;

/// A branch of the trie notes positions that add a child while it has fewer children.
constexpr u32 noting_children = wide_children - 1;

/// Nodes for which the trie may not report the latest position.
constexpr u64 special_nodes = tree_node::wide | tree_node::full_key | tree_node::fork;

/// Mark of a fork that two keys have reached.
constexpr u64 forked = tree_node::mark;

/// Prepends a record, unless its position is `same`, that of the record before (or 0, for none).
[[gnu::always_inline]] inline trie_record* add(trie_record* out, tree_node node, u32 pos, u32 same)
{
    out[-1] = {node.length(), pos};
    return out - (pos != same ? 1 : 0);
}

} // namespace

bool nearest_tree::build(const block_text& text, u32 min_length, const allocator& source)
{
    text_ = text.data;
    size_ = text.size;
    suffix_arrays arrays;
    if (!arrays.allocate(size_, true, source) || !arrays.sort(text, tree_scale)) return false;
    // What the trie reports for a wide node depends on the branch above it.
    if (has_wide_interval(arrays, min_length)) min_length = tree_scale.base;
    return tree_.build(text, arrays, {min_length, large_interval, true}, source) &&
           tree_.average_large_nodes() <= max_large_nodes;
}

/// Enters a position into the nodes on its path.
template <bool Report>
[[gnu::always_inline]] inline trie_record* nearest_tree::enter(u32 pos, trie_record* out)
{
    tree_.prefetch_after(pos);
    u32 below = 0; // the latest position of the node below, or 0 for none
    assert(!is_left_out(pos));
    for (tree_ref ref = tree_.leaf(pos); ref != tree_root;) {
        const tree_node node = tree_.node(ref);
        if ((node.word & special_nodes) != 0) [[unlikely]]
            return enter_like_trie<Report>(pos, ref, below, out);
        tree_.set_node(ref, node.with_last(pos));
        const u32 last = node.last();
        if constexpr (Report) out = add(out, node, last, below);
        below = last;
        ref = node.parent();
    }
    return out;
}

/// Enters a position into the rest of its path, from `ref` on, with the positions that the trie
/// would hold at special nodes.
template <bool Report>
[[gnu::noinline]] trie_record* nearest_tree::enter_like_trie(u32 pos, tree_ref ref, u32 below,
                                                             trie_record* out)
{
    u32 reported = below;
    while (ref != tree_root) {
        tree_node node = tree_.node(ref);
        tree_ref parent = node.parent();
        const u32 last = node.last();
        u32 noted = last;
        u32 next = pos;
        if ((node.word & tree_node::wide) != 0) {
            lcp_tree::wide_node& wide = tree_.wide(parent);
            parent = wide.parent;
            if (wide.direct && wide.noted != last) {
                noted = wide.noted;
                lengths_inexact_ = true;
            }
            const bool adds_child = below == 0;
            if (!adds_child || wide.children < noting_children) wide.noted = pos;
            if (adds_child) ++wide.children;
        }
        if ((node.word & tree_node::full_key) != 0 && last != 0 &&
            (tree_.node(parent).word & forked) != 0) {
            next = last;
            lengths_inexact_ = true;
        }
        if ((node.word & tree_node::fork) != 0 && below == 0 && last != 0) node.word |= forked;
        tree_.set_node(ref, node.with_last(next));
        if constexpr (Report) {
            if (noted != 0) {
                out = add(out, node, noted, reported);
                reported = noted;
            }
        }
        below = last;
        ref = parent;
    }
    return out;
}

void nearest_tree::insert(u32 pos, u32 count)
{
    for (const u32 end = pos + count; pos != end; ++pos) enter<false>(pos, nullptr);
}

std::span<const trie_record> nearest_tree::find(u32 pos, trie_records& records)
{
    trie_record* const end = records.data() + records.size();
    lengths_inexact_ = false;
    trie_record* first = enter<true>(pos, end);
    if (!lengths_inexact_) [[likely]]
        return {first, end};
    // Recompute the lengths, and keep only records that are longer than those before.
    const u32 limit = std::min(max_tree_length, size_ - pos);
    trie_record* kept = first;
    u32 longest = 0;
    for (const trie_record* record = first; record != end; ++record) {
        const u32 length = equal_bytes(text_ + pos, text_ + record->pos, limit);
        if (length <= longest && length != max_tree_length) continue;
        longest = length;
        *kept++ = {length, record->pos};
    }
    return {first, kept};
}

} // namespace quarnex
