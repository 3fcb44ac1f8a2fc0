#include "match/nearest_search.h"

#include <array>
#include <bit>

namespace quarnex {
namespace {

/// Smaller blocks are left to the trie.
constexpr u32 min_tree_block = 1024;

/// True if there is less than one distinct key (a string of trie_depth bytes) per 16 positions. The
/// trie of such a block is small and fast.
///
/// Keys are sampled by their hash (as in near-duplicate detection, Manber 1994).  All occurrences
/// of a key are in the sample, or none.  So a sample of 1 in k has about 1/k of the distinct keys.
bool has_few_keys(const block_text& text)
{
    constexpr u64 factor = 0x9E3779B97F4A7C15;
    constexpr u32 sample = 1024, slots = 2 * sample;
    const u32 rate_bits = static_cast<u32>(std::bit_width(text.size / (8 * sample)));
    const u32 enough = (text.size >> rate_bits) / 16;
    u64 power = 1; // factor of the byte that leaves the key
    for (u32 k = 0; k < trie_depth; ++k) power *= factor;
    std::array<u32, slots> seen{};
    u32 count = 0;
    u64 hash = 0;
    for (u32 pos = 0; pos < text.size; ++pos) {
        hash = hash * factor + text.data[pos] + 1;
        if (pos >= trie_depth) hash -= power * (text.data[pos - trie_depth] + u64{1});
        if (pos + 1 < trie_depth) continue;
        const u64 mixed = (hash ^ hash >> 32) * factor;
        if (mixed >> 32 >> (32 - rate_bits) != 0) continue;
        const u32 key = static_cast<u32>(mixed) | 1;
        u32 slot = key / 2 % slots;
        while (seen[slot] != 0 && seen[slot] != key) slot = (slot + 1) % slots;
        if (seen[slot] == key) continue;
        seen[slot] = key;
        if (++count >= enough) return false;
    }
    return true;
}

/// True if a tree of the block should be tried.
bool has_tree(const block_text& text)
{
    return can_have_tree(text.size) && text.size >= min_tree_block && !has_few_keys(text);
}

} // namespace

nearest_search::nearest_search(const block_text& text, u32 min_length, const allocator& source)
    : text_(text), source_(source)
{
    if (has_tree(text)) {
        tree_.emplace();
        if (tree_->build(text, min_length, source)) {
            exact_lengths_ = max_tree_length;
            return;
        }
        tree_.reset();
    }
    trie_.emplace(text, source);
}

/// Replaces the tree by a trie of the positions inserted so far.
void nearest_search::change_to_trie()
{
    trie_.emplace(text_, source_);
    for (u32 pos = 1; pos < next_;) {
        u32 end = pos;
        while (end < next_ && !tree_->is_left_out(end)) ++end;
        trie_->trie_insert(pos, end - pos);
        pos = end + 1;
    }
    tree_.reset();
    exact_lengths_ = 0;
}

void nearest_search::insert(u32 pos, u32 count)
{
    if (tree_ && pos < next_) change_to_trie();
    if (!tree_) return trie_->trie_insert(pos, count);
    tree_->leave_out(next_, pos);
    tree_->insert(pos, count);
    next_ = pos + count;
}

std::span<const trie_record> nearest_search::find(u32 pos)
{
    if (tree_ && pos < next_) change_to_trie();
    if (!tree_) return {records_.data(), trie_->trie_matches(pos, records_)};
    tree_->leave_out(next_, pos);
    next_ = pos + 1;
    return tree_->find(pos, records_);
}

} // namespace quarnex
