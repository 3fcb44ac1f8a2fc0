// match/nearest_search.h - match finder of level 9: for each length the nearest earlier position
//
// A trie of the positions (trie.h), or, for most blocks, the tree of LCP intervals
// (nearest_tree.h), which finds the same matches in half the time.  The trie serves blocks
//
// - of less than 1 KiB, for which sorting the suffixes takes longer;
// - of more than 2^25 bytes, and all blocks in 32-bit programs: they can't have a tree;
// - of long repeats: their trie is small, and the parse skips much of them;
// - with many large intervals around a position, as in sparse data;
// - without memory for the tree;
// - in which a window of the parse has ended early, so that positions are inserted again.  This is
//   rare.  The trie is then built from the positions inserted so far.
#pragma once

#include "match/nearest_tree.h"
#include "match/trie.h"

#include <optional>

namespace quarnex {

class nearest_search {
  public:
    /// Searches a block that is followed by at least trie_reads_past zeros, in memory from
    /// `source`.  Lengths below `min_length`, 2 or more, are not needed.
    nearest_search(const block_text& text, u32 min_length, const allocator& source);

    /// Upper bound on the memory for a block of `size` bytes, in bytes: that of the trie and, while
    /// the search changes to it, that of the tree.
    static constexpr u64 memory_for(u32 size)
    {
        return trie::memory_for(size) + (can_have_tree(size) ? nearest_tree::memory_for(size) : 0);
    }

    /// Inserts `count` positions from `pos` on.
    void insert(u32 pos, u32 count = 1);

    /// Finds matches among the positions inserted so far, then inserts `pos`.  The records are in
    /// order of non-decreasing length, and valid until the next call.  A record of exact_lengths()
    /// bytes or more may have a longer match.
    std::span<const trie_record> find(u32 pos);

    /// Records of less than this length are as long as their matches.
    u32 exact_lengths() const { return exact_lengths_; }

  private:
    void change_to_trie();

    block_text text_;
    const allocator& source_;
    std::optional<nearest_tree> tree_;
    std::optional<trie> trie_;
    u32 next_ = 1; // positions from here on have not been inserted
    u32 exact_lengths_ = 0;
    trie_records records_;
};

} // namespace quarnex
