// match/trie.h - a match finder of level 9: a radix tree of the block's positions
//
// It serves the blocks that nearest_search.h lists; the others have a tree of LCP intervals, which
// finds the same matches.
//
// Algorithm: a byte-wise radix tree (path-compressed, as Patricia; Morrison 1968) of the first 256
// bytes at each earlier position, with adaptive node sizes (trie_nodes.h).  Each node stores the
// latest position inserted through it, so one descent finds an earlier match for every length up to
// 256 bytes, nearly always the nearest one.  Labels are not stored but read from the block.
//
// Time: one descent per position, at most 256 bytes deep, for search and insertion together.
// Memory: 12 to 16 bytes for each byte of the block on typical files, 7 on random data, 28 at most
// in tests; 128 are reserved as address space, or 36 where addresses have 32 bits.
//
// Why not the textbook forms: suffix links make a suffix tree linear-time, but a search has to
// visit every node on its path anyway, to report and to update the latest positions.  A binary tree
// of positions, one per hash value, is smaller (8 bytes per position), but has a cache miss per
// comparison and rearranges its whole path on every insertion.  Patricia's skip counts save
// comparing labels, but then a match length is known only at a leaf.
//
// Nearly every node visited is a cache miss, so misses are overlapped in two ways: prefetch cursors
// descend the trie for the next 24 positions, one node per position searched; and positions that
// are inserted without a search descend in batches of eight.
//
// A tagged_position is a position times two, plus one.  A child is a tagged_position (a leaf) or
// the handle of a node in the pool, whose lowest bit is clear.
#pragma once

#include "match/pool.h"
#include "match/text.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace quarnex {

/// Bytes of a key: those at a position, as far as they are compared.
inline constexpr u32 trie_depth = 256;

/// Positions by which prefetch cursors run ahead of the search; one cursor for each.
inline constexpr u32 trie_prefetch_distance = 24;

/// Bytes past the block that the trie may read.  They must be zero.
inline constexpr u32 trie_reads_past =
    trie_depth + std::max(equal_bytes_overread, trie_prefetch_distance);

/// An earlier position that shares at least `length` bytes with the position looked up.
struct trie_record {
    u32 length;
    u32 pos;
};

/// Room for all records of a position: at most two per depth.
using trie_records = std::array<trie_record, usize{2} * trie_depth>;

class trie {
  public:
    /// An empty trie for a block that is followed by at least trie_reads_past zeros, in memory from
    /// `source`.
    trie(const block_text& text, const allocator& source)
        : trie(text, source, memory_for(text.size))
    {
    }
    /// The same, with at most `memory` bytes.
    trie(const block_text& text, const allocator& source, u64 memory)
        : text_(text.data), size_(text.size), nodes_(source, memory)
    {
        assert(size_ <= INT32_MAX && text.is_followed_by_zeros(trie_reads_past));
    }

    /// Bytes of address space reserved for a trie of `size` positions.  With 64-bit addresses this
    /// is several times the typical need; with 32-bit addresses, more than any test data needed.
    static constexpr u64 memory_for(u32 size)
    {
        constexpr u64 bytes_per_position = sizeof(void*) > sizeof(u32) ? 128 : 36;
        return size * bytes_per_position + pool::chunk_size;
    }

    /// Inserts `count` positions from `pos` on.  Without memory a position is not inserted, and the
    /// trie stays consistent.
    void trie_insert(u32 pos, u32 count = 1);

    /// Finds matches among the positions inserted so far, then inserts `pos`.  Returns the number
    /// of records stored in `records`, in order of non-decreasing length.
    u32 trie_matches(u32 pos, trie_records& records);

  private:
    /// Prefetch cursor: the descent of a later position.  May hold a stale handle, whose memory has
    /// been freed or reused since; it only ever reads.
    struct prefetch_cursor {
        u32 ref = no_block; // the next node, already prefetched; no_block at the end
        u32 pos = 0;
        u32 depth = 0;
    };

    void prefetch_ahead(u32 pos);
    void advance(prefetch_cursor& cursor) const;

    /// The descent of one key.
    struct descent {
        u8* link;    // where the reference to the next node is stored
        u32 tagged;  // the tagged_position
        u32 key_len; // bytes of the key
        u32 depth;   // bytes of the key that the nodes so far stand for
    };
    /// Maximum number of interleaved descents.
    static constexpr u32 batch_size = 8;

    descent start_descent(u32 pos);
    template <class Records>
    bool step(descent& at, Records& records);
    void make_root(u32 tagged);
    void split_path(u8* link, u32 same, u32 depth, u32 tagged);
    void add_child(u8* link, u8 key, u32 tagged);
    void add_to_list(u8* link, u8 key, u32 tagged);
    void add_to_bitmap(u8* link, u8 key, u32 tagged);
    void make_bitmap(u8* link, u8 key, u32 tagged);
    void make_full(u8* link, u8 key, u32 tagged);
    void insert_at_leaf(u8* link, u32 depth, u32 key_len, u32 tagged);
    pool_ref make_path(u32 last, u32 length, u32 child);
    pool_ref make_pair(u32 last, u8 a, u32 child_a, u8 b, u32 child_b);

    const u8* text_;
    u32 size_;
    pool nodes_;
    std::array<u8, 4> root_{}; // reference to the root, in the form of child references
    std::array<prefetch_cursor, trie_prefetch_distance> cursors_{}; // by position, modulo the size
};

} // namespace quarnex
