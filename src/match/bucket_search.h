// match/bucket_search.h - the searches of levels 3 to 7: several candidates for a hash value
//
// A table is an array in which hash value h owns a few neighbouring entries from h on: its bucket.
// Buckets overlap, so a table is hardly larger than one with a single candidate, and a candidate
// may come from another hash value.  Every candidate is verified by its first four bytes: such an
// entry, or a stale one, costs time but never correctness.
//
// The tables are large (128 MiB at the highest levels) and mostly empty.  Their
// memory is kept from block to block (table_memory.h), and each bucket is prefetched some positions
// before it is needed.
#pragma once

#include "match/concepts.h"
#include "match/found_match.h"
#include "match/table_memory.h"

#include <algorithm>
#include <concepts>
#include <optional>

namespace quarnex {

/// The entries of a table by hash value.
class bucket_array {
  public:
    /// Zeros for a block of `positions` bytes.  `size` entries belong to a hash value.  Without
    /// memory it converts to false.
    bucket_array(i32 hash_bits, u32 size, u32 positions, scratch& memory)
        : entries_(memory, (usize{1} << hash_bits) + size - 1, positions), hash_bits_(hash_bits),
          size_(size)
    {
    }

    explicit operator bool() const { return static_cast<bool>(entries_); }

    /// The first entry of the bucket of `pos`.
    u32* at(const block_text& text, u32 pos) const
    {
        return entries_.get() + text.hash(pos, hash_bits_);
    }

    /// Has the bucket of `pos` on its way when it is needed.
    void fetch(const block_text& text, u32 pos) const { __builtin_prefetch(at(text, pos)); }

    /// Ends the use for a block.  A short one leaves the entries as it found them.
    void leave(const block_text& text)
    {
        if (!entries_.is_mostly_zero(text.size)) return;
        // All positions behind the block have one bucket: that of zeros.
        for (u32 pos = 0; pos <= text.size; ++pos) std::fill_n(at(text, pos), size_, 0);
        entries_.was_cleared();
    }

  private:
    table_memory entries_;
    i32 hash_bits_;
    u32 size_; // of a bucket
};

/// Two candidates for a hash value, the latest first: an insertion moves the first to the second
/// place, which is also the next bucket's first.  All entries start at `Start`.
template <u32 Start>
class pair_table {
  public:
    /// For a block of `positions` bytes.
    pair_table(search_bits bits, u32 positions, scratch& memory)
        : buckets_(bits.hash_bits, 2, positions, memory)
    {
    }

    bucket_array& buckets() { return buckets_; }
    const bucket_array& buckets() const { return buckets_; }

    /// Enters `pos`, whose bucket this is.
    void insert(u32* bucket, u32 pos)
    {
        bucket[1] = bucket[0];
        bucket[0] = pos - Start;
    }

    /// Enters the last positions of the match of `len` bytes that ends at `end`.
    void insert_end(const block_text& text, u32 end, u32 /*len*/)
    {
        insert(buckets_.at(text, end - 1), end - 1);
        insert(buckets_.at(text, end - 2), end - 2);
    }

    /// A look at the candidates of a bucket, in order.
    class walk {
      public:
        walk(const pair_table& /*table*/, const u32* bucket) : entry_(bucket), end_(bucket + 2) {}
        bool done() const { return entry_ == end_; }
        void next() { ++entry_; }
        u32 cand() const { return *entry_ + Start; }

      private:
        const u32* entry_;
        const u32* end_;
    };

    /// No match starts in the last so many bytes of the block.
    static constexpr u32 barred_bytes = 4;

    /// Whether `cand` is compared with the best match at `pos` at all: only if it can be longer.
    static bool may_win(const block_text& text, u32 pos, u32 cand, const found_match& best)
    {
        return text.same_byte(pos + best.len, cand + best.len);
    }

  private:
    bucket_array buckets_; // of positions less Start, so that zeros need no filling
};

/// A ring of 2^chain_bits candidates for a hash value.
///
/// An entry holds a position in its upper 24 bits; higher positions are kept modulo 2^24 and so
/// name an earlier place, which is verified like any other.  The lowest 8 bits of a bucket's first
/// entry are the place of the latest insertion in the ring.
class ring_table {
  public:
    /// For a block of `positions` bytes.
    ring_table(search_bits bits, u32 positions, scratch& memory)
        : size_(1U << bits.chain_bits), buckets_(bits.hash_bits, size_, positions, memory)
    {
    }

    bucket_array& buckets() { return buckets_; }
    const bucket_array& buckets() const { return buckets_; }

    /// Enters `pos`, whose bucket this is.
    void insert(u32* bucket, u32 pos)
    {
        const u32 cursor = (*bucket + 1) & (size_ - 1);
        *bucket = (*bucket & ~cursor_mask) | cursor;
        u32& entry = bucket[cursor];
        entry = pos << cursor_bits | (entry & cursor_mask);
    }

    /// Enters the last positions of the match of `len` bytes that ends at `end`.
    void insert_end(const block_text& text, u32 end, u32 len)
    {
        insert(buckets_.at(text, end - 1), end - 1);
        if (len > 4) insert(buckets_.at(text, end - 2), end - 2);
    }

    /// A look at the candidates of a bucket, in the order of their places.  It ends at the first
    /// entry that is all zero; the first one is looked at in any case.
    class walk {
      public:
        walk(const ring_table& table, const u32* bucket)
            : entry_(bucket), end_(bucket + table.size_)
        {
        }
        bool done() const { return entry_ == end_; }
        void next()
        {
            ++entry_;
            if (entry_ != end_ && *entry_ == 0) entry_ = end_;
        }
        u32 cand() const { return *entry_ >> cursor_bits; }

      private:
        const u32* entry_;
        const u32* end_;
    };

    /// Matches can start everywhere.
    static constexpr u32 barred_bytes = 0;

    /// Whether `cand` can win against the best match at `pos`.  For that it is longer, or nearer
    /// and at most one byte shorter.  So the two agree up to that length, of which the last three
    /// to five bytes are compared.
    static bool may_win(const block_text& text, u32 pos, u32 cand, const found_match& best)
    {
        const u32 place = best.len - 4;
        const bool nearer = cand > pos - best.dist;
        const u64 needed = nearer ? 0x00FFFFFF : 0xFFFFFFFFFF;
        return (text.difference(pos + place, cand + place) & needed) == 0;
    }

  private:
    static constexpr u32 cursor_bits = 8;
    static constexpr u32 cursor_mask = (1U << cursor_bits) - 1;

    u32 size_; // candidates of a ring
    bucket_array buckets_;
};

/// What a search asks of its table: the two above.
template <class T>
concept bucket_table = requires(T table, const T& so_far, const block_text& text, u32* bucket,
                                u32 pos, const found_match& best)
{
    so_far.buckets().fetch(text, pos);
    table.buckets().leave(text);
    table.insert(bucket, pos);
    table.insert_end(text, pos, best.len);
    requires std::constructible_from<typename T::walk, const T&, const u32*>;
    requires std::convertible_to<decltype(T::barred_bytes), u32>;
    requires std::same_as<decltype(T::may_win(text, pos, pos, best)), bool>;
};

/// The best candidate at `pos`, whose bucket this is: the first that matches, or a later one that
/// is better.
template <bucket_table Table>
found_match find_best(const block_text& text, const Table& table, const u32* bucket, u32 pos)
{
    if (pos + Table::barred_bytes >= text.size) return {0, 0};
    typename Table::walk walk(table, bucket);
    while (!text.matches(pos, walk.cand())) {
        walk.next();
        if (walk.done()) return {0, 0};
    }
    found_match best{text.match_length(pos, walk.cand()), pos - walk.cand()};
    for (walk.next(); !walk.done(); walk.next()) {
        const u32 cand = walk.cand();
        if (!Table::may_win(text, pos, cand, best) || !text.matches(pos, cand)) continue;
        const found_match found{text.match_length(pos, cand), pos - cand};
        const auto longer = static_cast<i32>(found.len - best.len);
        if (better_match(longer, best.dist, found.dist)) best = found;
    }
    return best;
}

/// weigh() apart from the loop that seldom comes to it, which has more registers so.
template <u32 Ahead>
[[gnu::noinline]] outlook weigh_apart(const block_text& text, u32 pos, u32 cand, found_match best)
{
    return weigh<Ahead>(text, pos, cand, best);
}

/// Compares the best match at `pos` with all candidates of the position `Ahead` bytes on, whose
/// bucket this is.
///
/// A candidate has to pass the glance.  To change anything it also needs the bytes in front of that
/// which a match has that is one byte shorter when it is extended back; the last are compared too.
template <u32 Ahead, bucket_table Table>
outlook look_ahead(const block_text& text, const Table& table, const u32* bucket, u32 pos,
                   found_match best)
{
    constexpr u64 needed = ((1U << 8 * (3 - Ahead)) - 1) | u64{0xFF} << 8 * (2 + Ahead);
    const u32 next = pos + Ahead;
    u32 place = best.len - 4;
    for (typename Table::walk walk(table, bucket); !walk.done(); walk.next()) {
        const u32 cand = walk.cand();
        if ((text.difference(next + place, cand + place) & needed) != 0) continue;
        const outlook look = weigh_apart<Ahead>(text, pos, cand, best);
        if (look.literal) return look;
        best = look.best;
        place = best.len - 4;
    }
    return {best, false};
}

/// How many positions a bucket is fetched before it is needed.
inline constexpr u32 fetch_ahead = 16;
static_assert(fetch_ahead + 4 <= search_reads_past);

/// Lazy search with several candidates: a match is compared with those of the next two positions
/// before it is taken.
///
/// Starts with an empty table, takes the whole block and stops early when `out` is full.  Returns
/// `out`, or nothing without memory for the table.
template <bucket_table Table, token_writer Writer>
[[nodiscard]] std::optional<Writer> search_buckets(const block_text text, search_bits bits,
                                                   scratch& memory, Writer out)
{
    Table table(bits, text.size, memory);
    if (!table.buckets()) return {};
    bucket_array& buckets = table.buckets();
    u32 fetched = 0;
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        for (fetched = std::max(fetched, pos); fetched < pos + fetch_ahead; ++fetched) {
            buckets.fetch(text, fetched);
        }
        u32* const first = buckets.at(text, pos);
        const found_match found = find_best(text, table, first, pos);
        table.insert(first, pos);
        if (found.len == 0) {
            out.literal(pos++);
            continue;
        }
        u32* const second = buckets.at(text, pos + 1);
        u32* const third = buckets.at(text, pos + 2);
        outlook look = look_ahead<1>(text, table, second, pos, found);
        if (!look.literal) look = look_ahead<2>(text, table, third, pos, look.best);
        if (look.literal) {
            out.literal(pos++);
            continue;
        }
        const found_match best = look.best;
        table.insert(second, pos + 1);
        table.insert(third, pos + 2);
        out.match(pos, best.len, best.dist);
        pos += best.len;
        table.insert_end(text, pos, best.len);
    }
    buckets.leave(text);
    return out;
}

} // namespace quarnex
