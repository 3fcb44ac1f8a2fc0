// match/hash_search.h - match finder of levels 0 to 2: a hash table with one candidate per value
//
// Algorithm: a table of the latest position for each hash of four bytes, as in LZRW1 (Williams
// 1991), with greedy parsing at levels 0 and 1 and lazy parsing (found_match.h) at level 2, or from
// level 1 on in some methods.
//
// Time: one probe and one insertion per position outside matches, a few insertions per match: O(n).
// Memory: 4 bytes for each of 2^hash_bits hash values, by default 16 to 128 KiB at level 0, up to
// 512 KiB at level 1, 1 MiB at level 2: sized to stay in the caches.
//
// Unlike the textbook form, the table has no empty mark and is never tested for one.  All entries
// start as position 0, an ordinary candidate; every candidate is verified by its first four bytes,
// so a stale entry or a hash collision costs time but never correctness.
//
// Each search starts with an empty table, parses the whole block and stops early when the writer is
// full.  It returns the writer, or nothing without memory for the table.
#pragma once

#include "common/scratch.h"
#include "match/concepts.h"
#include "match/found_match.h"

#include <cassert>
#include <optional>
#include <utility>

namespace quarnex {

/// The latest position for each of 2^hash_bits hash values.
class fast_hash_table {
  public:
    /// A table with all entries at the block's start.  Converts to false without memory.
    fast_hash_table(i32 hash_bits, const allocator& source)
        : entries_(make_zeroed_array<u32>(source, usize{1} << hash_bits)), hash_bits_(hash_bits)
    {
        assert(is_hash_size(hash_bits));
    }

    explicit operator bool() const { return entries_ != nullptr; }

    /// The latest position with the hash of the word at `pos`.
    u32 candidate(const block_text& text, u32 pos) const
    {
        return entries_[text.hash(pos, hash_bits_)];
    }

    void insert(const block_text& text, u32 pos) { entries_[text.hash(pos, hash_bits_)] = pos; }

    /// Inserts `pos`, whose four bytes are `word`, and returns the position it replaces.
    u32 exchange(u32 word, u32 pos)
    {
        return std::exchange(entries_[hash4(word, hash_bits_)], pos);
    }

  private:
    owned_array<u32> entries_;
    i32 hash_bits_;
};

/// Which positions of a match are inserted into the table besides its first.
enum class inserts {
    nothing,
    inside_match, // the second, the third and the last
};

/// Greedy parsing: takes each match as soon as it is found.
///
/// Every position outside a match is looked up and inserted.
template <inserts Inserts, token_writer Writer>
[[nodiscard]] std::optional<Writer> search_greedy(const block_text text, search_bits bits,
                                                  scratch& memory, Writer out)
{
    static_assert(Writer::first_pos >= 1 && Writer::min_match <= 4);
    assert(text.is_followed_by_zeros(search_reads_past));
    fast_hash_table table(bits.hash_bits, memory.source);
    if (!table) return {};
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        const u32 word = text.word(pos);
        const u32 cand = table.exchange(word, pos);
        if (!text.matches_word(word, pos, cand)) {
            out.literal(pos++);
            continue;
        }
        const u32 len = text.match_length(pos, cand);
        out.match(pos, len, pos - cand);
        if constexpr (Inserts == inserts::inside_match) {
            table.insert(text, pos + 1);
            table.insert(text, pos + 2);
            table.insert(text, pos + len - 1);
        }
        pos += len;
    }
    return out;
}

/// Lazy parsing: compares each match with the candidate of the next position before taking it.
template <token_writer Writer>
[[nodiscard]] std::optional<Writer> search_lazy(const block_text text, search_bits bits,
                                                scratch& memory, Writer out)
{
    static_assert(Writer::first_pos >= 1 && Writer::min_match <= 4);
    assert(text.is_followed_by_zeros(search_reads_past));
    fast_hash_table table(bits.hash_bits, memory.source);
    if (!table) return {};
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        const u32 word = text.word(pos);
        const u32 cand = table.exchange(word, pos);
        if (!text.matches_word(word, pos, cand)) {
            out.literal(pos++);
            continue;
        }
        const found_match found{text.match_length(pos, cand), pos - cand};
        const lookahead_result result =
            compare_lookahead<1>(text, pos, table.candidate(text, pos + 1), found);
        if (result.literal) {
            out.literal(pos++);
            continue;
        }
        const found_match best = result.best;
        table.insert(text, pos + 1);
        out.match(pos, best.len, best.dist);
        table.insert(text, pos + 2);
        pos += best.len;
        table.insert(text, pos - 1);
        table.insert(text, pos - 2);
    }
    return out;
}

} // namespace quarnex
