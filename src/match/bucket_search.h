// match/bucket_search.h - match finder of levels 3 to 7: a hash table with several candidates
//
// Algorithm: a set-associative hash table with cyclic replacement, as in LZRW3-A (Williams 1991).
// A hash value has a bucket of 2 entries (pair_table, level 3) or 2^chain_bits (ring_table, levels
// 4 to 7: 4, 8, 16, 64).  Lazy evaluation (found_match.h) covers the next two positions.
//
// Buckets overlap: that of hash value h starts at entry h of one array.  So a table has hardly more
// entries than hash values, and an entry may hold a position of another hash value.  Every
// candidate is verified by its first four bytes: such an entry, or a stale one, costs time but
// never correctness.  A bucket is contiguous, so it costs one or a few cache misses; a hash chain
// has a cache miss for each candidate.
//
// Time: up to three buckets per searched position, each candidate rejected by one comparison or
// measured.  Memory: 4 bytes for each hash value, by default 32 MiB at level 3, 64 MiB at level 4,
// 128 MiB at levels 5 to 7, whatever the block's size.
//
// Tables of this size are mostly empty and do not fit in the cache.  So their memory is reused from
// block to block (table_memory.h), and each bucket is prefetched 16 positions ahead.  At level 3 a
// block below 1 MiB leaves the entries of earlier blocks in place, and its own are higher.  At
// levels 5 to 7 a ring is walked from the latest candidate to the oldest (ring_search.h).
#pragma once

#include "match/concepts.h"
#include "match/found_match.h"
#include "match/table_memory.h"

#include <algorithm>
#include <cassert>
#include <concepts>
#include <optional>
#include <utility>

namespace quarnex {

/// Inserted positions are less than the block's size plus this: a match can extend past the end.
inline constexpr u32 inserts_past = 8;

/// The entries of a table, by hash value.
class bucket_array {
  public:
    /// A table for a block of `positions` bytes, whose buckets have `size` entries.  Converts to
    /// false without memory.
    bucket_array(i32 hash_bits, u32 size, u32 positions, scratch& memory,
                 table_start start = table_start::zeros)
        : entries_(memory, (usize{1} << hash_bits) + size - 1, usize{positions} + inserts_past,
                   start),
          hash_bits_(hash_bits), size_(size), start_(start)
    {
        assert(is_hash_size(hash_bits) && size != 0);
    }

    explicit operator bool() const { return static_cast<bool>(entries_); }

    /// The first entry of the bucket of `pos`.
    u32* at(const block_text& text, u32 pos) const
    {
        return entries_.get() + text.hash(pos, hash_bits_);
    }

    /// Value added to the positions that are stored; entries up to it are empty.
    u32 base() const { return entries_.base(); }

    /// Prefetches the start of the bucket of `pos`.
    void prefetch(const block_text& text, u32 pos) const { __builtin_prefetch(at(text, pos)); }

    /// Prefetches the bucket of `pos`: the line of every 16th entry, and for up to 16 entries that
    /// of the last one too.  (A larger bucket can end in one more line, which holds few of its
    /// entries.)
    ///
    /// Always inlined: GCC considers a function that only prefetches free of effects, and drops
    /// calls that are not inlined early.
    [[gnu::always_inline]] void prefetch_all(const block_text& text, u32 pos) const
    {
        const u32* const bucket = at(text, pos);
        for (u32 i = 0; i < size_; i += line_entries) __builtin_prefetch(bucket + i);
        if (size_ <= line_entries) __builtin_prefetch(bucket + size_ - 1);
    }

    /// Call after each block.  Notes the highest of rising entries; otherwise, clears the buckets
    /// that a short block touched.
    void end_block(const block_text& text)
    {
        if (start_ == table_start::rising)
            return entries_.mark_highest(base() + text.size + inserts_past);
        if (!entries_.is_mostly_zero(text.size)) return;
        // All positions past the block share the bucket of four zeros.
        for (u32 pos = 0; pos <= text.size; ++pos) std::fill_n(at(text, pos), size_, 0);
        entries_.mark_highest(0);
    }

  private:
    static constexpr u32 line_entries = 16; // of a cache line of 64 bytes

    table_memory entries_;
    i32 hash_bits_;
    u32 size_; // entries of a bucket
    table_start start_;
};

/// Two candidates per hash value, the latest first: an insertion moves the first entry to the
/// second, which is also the first of the next bucket.  All entries start as position `Start`.
///
/// With table_start::rising, entries of earlier blocks stay in the table and count as `Start`.
template <u32 Start, table_start Entries = table_start::zeros>
class pair_table {
  public:
    /// For a block of `positions` bytes.
    pair_table(search_bits bits, u32 positions, scratch& memory)
        : buckets_(bits.hash_bits, 2, positions, memory, Entries),
          base_(is_rising ? buckets_.base() : 0)
    {
    }

    bucket_array& buckets() { return buckets_; }
    const bucket_array& buckets() const { return buckets_; }

    /// Inserts `pos` into its bucket.
    void insert(u32* bucket, u32 pos)
    {
        bucket[1] = bucket[0];
        bucket[0] = is_rising ? pos - Start + base_ : pos - Start;
    }

    /// Inserts the last positions of a match of `len` bytes; `end` is the position after it.
    void insert_end(const block_text& text, u32 end, u32 /*len*/)
    {
        insert(buckets_.at(text, end - 1), end - 1);
        insert(buckets_.at(text, end - 2), end - 2);
    }

    /// Iterates over the candidates of a bucket, in order.
    class candidate_scan {
      public:
        candidate_scan(const pair_table& table, const u32* bucket)
            : entry_(bucket), end_(bucket + 2), base_(table.base_)
        {
        }
        bool done() const { return entry_ == end_; }
        void next() { ++entry_; }
        u32 cand() const
        {
            return is_rising ? std::max(*entry_, base_) - base_ + Start : *entry_ + Start;
        }

      private:
        const u32* entry_;
        const u32* end_;
        u32 base_;
    };

    /// Bytes at the block's end in which no match starts.
    static constexpr u32 tail_bytes = 4;

    /// False if `cand` can be rejected without a full comparison: a longer match would have to
    /// share the byte after the best match at `pos`.
    static bool may_win(const block_text& text, u32 pos, u32 cand, const found_match& best)
    {
        return text.same_byte(pos + best.len, cand + best.len);
    }

  private:
    static constexpr bool is_rising = Entries == table_start::rising;

    bucket_array buckets_; // positions minus Start, so that zeroed memory needs no filling
    u32 base_;             // added to each entry
};

/// A ring of 2^chain_bits candidates per hash value.
///
/// An entry holds a position in its upper 24 bits.  Positions from 2^24 on are stored modulo 2^24;
/// the result is an earlier position and is verified like any other.  The low 8 bits of a bucket's
/// first entry are the index of the ring's latest insertion.
class ring_table {
  public:
    /// For a block of `positions` bytes.
    ring_table(search_bits bits, u32 positions, scratch& memory)
        : size_(1U << bits.chain_bits), buckets_(bits.hash_bits, size_, positions, memory)
    {
        assert(bits.chain_bits >= 0 && bits.chain_bits <= static_cast<i32>(cursor_bits));
    }

    bucket_array& buckets() { return buckets_; }
    const bucket_array& buckets() const { return buckets_; }

    /// Inserts `pos` into its bucket.
    void insert(u32* bucket, u32 pos)
    {
        const u32 cursor = (*bucket + 1) & (size_ - 1);
        *bucket = (*bucket & ~cursor_mask) | cursor;
        u32& entry = bucket[cursor];
        entry = pos << cursor_bits | (entry & cursor_mask);
    }

    /// Inserts the last positions of a match of `len` bytes; `end` is the position after it.
    void insert_end(const block_text& text, u32 end, u32 len)
    {
        insert(buckets_.at(text, end - 1), end - 1);
        if (len > 4) insert(buckets_.at(text, end - 2), end - 2);
    }

    /// Iterates over the candidates of a bucket, in memory order, not by age.  Stops at the first
    /// entry that is all zero, except that the first entry is always a candidate.
    class candidate_scan {
      public:
        candidate_scan(const ring_table& table, const u32* bucket)
            : entry_(bucket), end_(bucket + table.size_)
        {
        }
        bool done() const { return entry_ == end_; }
        void next()
        {
            ++entry_;
            if (entry_ != end_ && *entry_ == 0) entry_ = end_;
        }
        u32 cand() const { return position(*entry_); }

      private:
        const u32* entry_;
        const u32* end_;
    };

    /// Up to this block size, the entries from the second to the latest are never all zero.
    static constexpr u32 max_positions = 1U << 24;

    /// Number of candidates of a ring.
    u32 size() const { return size_; }
    /// The index of the latest insertion into a bucket; 0 before the first.
    u32 latest(const u32* bucket) const { return *bucket & (size_ - 1); }
    /// The position in an entry.
    static u32 position(u32 entry) { return entry >> cursor_bits; }

    /// A match can start anywhere.
    static constexpr u32 tail_bytes = 0;

    /// False if `cand` cannot beat the best match at `pos`.  A winner is longer, so it shares
    /// best.len + 1 bytes, of which the last five are compared; or it is nearer and at most one
    /// byte shorter, so it shares best.len - 1 bytes, of which the last three are compared.
    static bool may_win(const block_text& text, u32 pos, u32 cand, const found_match& best)
    {
        const u32 offset = best.len - 4;
        const bool nearer = cand > pos - best.dist;
        const u64 needed = nearer ? 0x00FFFFFF : 0xFFFFFFFFFF;
        return (text.difference(pos + offset, cand + offset) & needed) == 0;
    }

  private:
    static constexpr u32 cursor_bits = 8;
    static constexpr u32 cursor_mask = (1U << cursor_bits) - 1;

    u32 size_; // candidates of a ring
    bucket_array buckets_;
};

/// What search_buckets() needs from its table: pair_table or ring_table.
template <class T>
concept bucket_table = requires(T table, const T& const_table, const block_text& text, u32* bucket,
                                u32 pos, const found_match& best)
{
    const_table.buckets().prefetch(text, pos);
    table.buckets().end_block(text);
    table.insert(bucket, pos);
    table.insert_end(text, pos, best.len);
    requires std::constructible_from<typename T::candidate_scan, const T&, const u32*>;
    requires std::convertible_to<decltype(T::tail_bytes), u32>;
    requires std::same_as<decltype(T::may_win(text, pos, pos, best)), bool>;
};

/// try_lookahead() out of line: keeps registers free in the common loop.
template <u32 Ahead>
[[gnu::noinline]] lookahead_result try_lookahead_out_of_line(const block_text& text, u32 pos,
                                                             u32 cand, found_match best)
{
    return try_lookahead<Ahead>(text, pos, cand, best);
}

/// Walks the candidates of a bucket in the order of the table.
struct walk_in_order {
    [[gnu::always_inline]] static void prefetch(const bucket_array& buckets, const block_text& text,
                                                u32 pos)
    {
        buckets.prefetch(text, pos);
    }

    /// The best candidate in the bucket of `pos`: the first that matches, unless a later one is
    /// better.  A length of 0 if none matches.
    template <bucket_table Table>
    static found_match find_best(const block_text& text, const Table& table, const u32* bucket,
                                 u32 pos)
    {
        if (pos + Table::tail_bytes >= text.size) return {0, 0};
        typename Table::candidate_scan scan(table, bucket);
        while (!text.matches(pos, scan.cand())) {
            scan.next();
            if (scan.done()) return {0, 0};
        }
        found_match best{text.match_length(pos, scan.cand()), pos - scan.cand()};
        for (scan.next(); !scan.done(); scan.next()) {
            const u32 cand = scan.cand();
            if (!Table::may_win(text, pos, cand, best) || !text.matches(pos, cand)) continue;
            const found_match found{text.match_length(pos, cand), pos - cand};
            const auto longer = static_cast<i32>(found.len - best.len);
            if (better_match(longer, best.dist, found.dist)) best = found;
        }
        return best;
    }

    /// Compares the best match at `pos` with all candidates in the bucket of pos + Ahead.
    ///
    /// Quick reject, in one load: compares the byte at reject_offset() and those among the four
    /// bytes before it that any winning candidate must share.  (Extended back, a winner is at most
    /// one byte shorter than the match, so it shares at least best.len - 1 - Ahead bytes with pos +
    /// Ahead.)
    template <u32 Ahead, bucket_table Table>
    static lookahead_result look_ahead(const block_text& text, const Table& table,
                                       const u32* bucket, u32 pos, found_match best)
    {
        constexpr u64 needed = ((1U << 8 * (3 - Ahead)) - 1) | u64{0xFF} << 8 * (2 + Ahead);
        const u32 next = pos + Ahead;
        u32 offset = best.len - 4;
        for (typename Table::candidate_scan scan(table, bucket); !scan.done(); scan.next()) {
            const u32 cand = scan.cand();
            if ((text.difference(next + offset, cand + offset) & needed) != 0) continue;
            const lookahead_result result = try_lookahead_out_of_line<Ahead>(text, pos, cand, best);
            if (result.literal) return result;
            best = result.best;
            offset = best.len - 4;
        }
        return {best, false};
    }
};

/// Positions by which the prefetch of buckets runs ahead of the search.
inline constexpr u32 bucket_prefetch_distance = 16;
static_assert(bucket_prefetch_distance + sizeof(u32) <= search_reads_past);

/// Lazy parsing with several candidates: compares a match with the candidates of the next two
/// positions before taking it.
///
/// `Walk` compares the candidates: walk_in_order, or one with the same results (walk_latest_first).
///
/// Starts with an empty table, parses the whole block and stops early when `out` is full.  Returns
/// `out`, or nothing without memory for the table.
template <bucket_table Table, token_writer Writer, class Walk = walk_in_order>
[[nodiscard]] std::optional<Writer> search_buckets(const block_text text, search_bits bits,
                                                   scratch& memory, Writer out)
{
    static_assert(Writer::first_pos >= 1 && Writer::min_match <= 4);
    assert(text.is_followed_by_zeros(search_reads_past));
    Table table(bits, text.size, memory);
    if (!table.buckets()) return {};
    bucket_array& buckets = table.buckets();
    u32 prefetched = 0;
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        for (prefetched = std::max(prefetched, pos); prefetched < pos + bucket_prefetch_distance;
             ++prefetched) {
            Walk::prefetch(buckets, text, prefetched);
        }
        u32* const first = buckets.at(text, pos);
        const found_match found = Walk::find_best(text, table, first, pos);
        table.insert(first, pos);
        if (found.len == 0) {
            out.literal(pos++);
            continue;
        }
        u32* const second = buckets.at(text, pos + 1);
        u32* const third = buckets.at(text, pos + 2);
        lookahead_result result = Walk::template look_ahead<1>(text, table, second, pos, found);
        if (!result.literal)
            result = Walk::template look_ahead<2>(text, table, third, pos, result.best);
        if (result.literal) {
            out.literal(pos++);
            continue;
        }
        const found_match best = result.best;
        table.insert(second, pos + 1);
        table.insert(third, pos + 2);
        out.match(pos, best.len, best.dist);
        pos += best.len;
        table.insert_end(text, pos, best.len);
    }
    buckets.end_block(text);
    return out;
}

/// The largest block that is searched with rising entries, in bytes.  For longer ones, clearing the
/// table takes less time than the additional operations per candidate.
inline constexpr u32 max_rising_block = (1U << 20) - 1;

/// search_buckets() with a pair_table whose entries start as position `Start`.
template <u32 Start, token_writer Writer>
[[nodiscard]] std::optional<Writer> search_pairs(const block_text text, search_bits bits,
                                                 scratch& memory, Writer out)
{
    const bool rises = text.size <= max_rising_block;
    const auto search = rises ? search_buckets<pair_table<Start, table_start::rising>, Writer>
                              : search_buckets<pair_table<Start>, Writer>;
    return search(text, bits, memory, std::move(out));
}

} // namespace quarnex
