// match/trie.h - earlier positions of a block by the bytes that follow them
//
// A byte-wise radix tree of the first 256 bytes of positions.  Each node remembers the latest
// position that passed through it, so a walk down with the bytes at a position meets, for each
// depth, the nearest earlier position that shares so many bytes.  Labels are read from the block.
//
// A tagged_position is a position times two, plus one.  A child reference is one, a leaf, or a
// node: a block of the pool, whose reference has its lowest bit clear.
#pragma once

#include "match/pool.h"
#include "match/text.h"

#include <algorithm>
#include <array>

namespace quarnex {

/// The bytes of a position that count.
inline constexpr u32 trie_depth = 256;

/// Positions for which nodes are fetched ahead.
inline constexpr u32 trie_scouts = 24;

/// Bytes behind the block that the trie may read.
inline constexpr u32 trie_reads_past = trie_depth + std::max(equal_bytes_overread, trie_scouts);

/// An earlier position that shares at least `length` bytes, and as a rule more.
struct trie_record {
    u32 length;
    u32 pos;
};

/// Room for all records of a position.
using trie_records = std::array<trie_record, usize{2} * trie_depth>;

class trie {
  public:
    /// An empty trie for a block, with at least trie_reads_past bytes behind it, in memory from
    /// `source`.
    trie(const block_text& text, const allocator& source)
        : trie(text, source, memory_for(text.size))
    {
    }
    /// The same with at most `memory` bytes.
    trie(const block_text& text, const allocator& source, u64 memory)
        : text_(text.data), size_(text.size), nodes_(source, memory)
    {
    }

    /// Bytes of addresses that a trie reserves for `size` positions: some times what their nodes
    /// take as a rule, and where addresses have 32 bits, more than they were ever seen to take.
    static constexpr u64 memory_for(u32 size)
    {
        constexpr u64 bytes_per_position = sizeof(void*) > sizeof(u32) ? 128 : 36;
        return size * bytes_per_position + pool::chunk_size;
    }

    /// Enters `count` positions from `pos` on.  Those without memory are not entered.
    void trie_insert(u32 pos, u32 count = 1);

    /// Finds positions that were entered before `pos`, then enters it.  Returns how many `records`
    /// there are; their lengths don't fall.
    u32 trie_matches(u32 pos, trie_records& records);

  private:
    /// A look-up that runs ahead and only brings what it meets into the cache.  The nodes that it
    /// knows may be gone when it goes on: then it reads what is in their place.
    struct scout {
        u32 ref = no_block; // the next node, which is on its way; none if there is no more
        u32 pos = 0;
        u32 depth = 0;
    };

    void send_scouts(u32 pos);
    void advance(scout& ahead) const;

    /// A position on its way down the tree.
    struct walk {
        u8* slot;    // where the reference to the next node is
        u32 tagged;  // the position
        u32 key_len; // bytes of it that count
        u32 depth;   // those that the nodes so far stand for
    };
    /// Walks that go at a time.
    static constexpr u32 convoy_size = 8;

    walk start_walk(u32 pos);
    template <class Records>
    bool step(walk& at, Records& records);
    void start(u32 tagged);
    void split_path(u8* slot, u32 same, u32 depth, u32 tagged);
    void add_child(u8* slot, u8 key, u32 tagged);
    void add_to_list(u8* slot, u8 key, u32 tagged);
    void add_to_bitmap(u8* slot, u8 key, u32 tagged);
    void make_bitmap(u8* slot, u8 key, u32 tagged);
    void make_full(u8* slot, u8 key, u32 tagged);
    void meet_leaf(u8* slot, u32 depth, u32 key_len, u32 tagged);
    pool_ref make_path(u32 last, u32 length, u32 child);
    pool_ref make_pair(u32 last, u8 a, u32 child_a, u8 b, u32 child_b);

    const u8* text_;
    u32 size_;
    pool nodes_;
    std::array<u8, 4> root_{};                // its reference, as nodes hold theirs
    std::array<scout, trie_scouts> scouts_{}; // by position
};

} // namespace quarnex
