// match/trie_fixture.h - a block with its trie
#pragma once

#include "match/trie.h"
#include "plain/plain_trie.h"
#include "support/codec_runs.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex::test {

using records = std::vector<plain_trie_record>;

/// A block followed by the zeros that a trie may read.
inline std::unique_ptr<u8[]> padded(const bytes& block)
{
    auto text = exact_buffer(block.size() + trie_reads_past);
    std::copy(block.begin(), block.end(), text.get());
    return text;
}

/// A block and its trie.
class block_trie {
  public:
    explicit block_trie(const bytes& block) : block_trie(block, u64{64} << 20) {}
    block_trie(const bytes& block, u64 memory)
        : text_(padded(block)),
          trie_({text_.get(), static_cast<u32>(block.size())}, system_allocator, memory)
    {
    }

    void insert(u32 pos) { trie_.trie_insert(pos); }

    /// Inserts positions from `first` to `end`, exclusive.
    void insert(u32 first, u32 end)
    {
        for (; first < end; ++first) insert(first);
    }

    /// Inserts consecutive positions at once.
    void insert_batch(u32 first, u32 count) { trie_.trie_insert(first, count); }

    /// Searches for a position and inserts it.
    records matches(u32 pos)
    {
        const u32 count = trie_.trie_matches(pos, records_);
        records found;
        for (u32 k = 0; k < count; ++k) found.push_back({records_[k].length, records_[k].pos});
        return found;
    }

  private:
    std::unique_ptr<u8[]> text_;
    trie trie_;
    trie_records records_;
};

/// Expects records to be valid: each names an earlier position, not 0, that shares its length, and
/// lengths do not decrease.
inline void expect_valid_records(const records& found, const bytes& block, u32 pos)
{
    for (usize k = 0; k < found.size(); ++k) {
        ASSERT_GT(found[k].pos, 0U);
        ASSERT_LT(found[k].pos, pos);
        ASSERT_LE(pos + found[k].len, block.size());
        ASSERT_TRUE(std::equal(&block[pos], &block[pos] + found[k].len, &block[found[k].pos]))
            << found[k].pos << ' ' << pos;
        ASSERT_GE(found[k].len, found[k != 0 ? k - 1 : 0].len);
    }
}

} // namespace quarnex::test
