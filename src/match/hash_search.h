// match/hash_search.h - the searches of levels 0 to 2: one candidate for a hash value
//
// A table holds the latest position for each hash value.  It starts as all zero, so position 0 is
// an ordinary candidate everywhere and no empty test is needed: every candidate is verified by its
// first four bytes, and a stale or shared entry costs time but never correctness.
//
// Each search starts with an empty table, takes the whole block and stops early when the writer is
// full.  It returns the writer, or nothing without memory for the table.
#pragma once

#include "common/scratch.h"
#include "match/concepts.h"
#include "match/found_match.h"

#include <optional>
#include <utility>

namespace quarnex {

/// The latest position for each of 2^hash_bits hash values.
class fast_hash_table {
  public:
    /// A table with all entries at the block's start.  Without memory it converts to false.
    fast_hash_table(i32 hash_bits, const allocator& source)
        : entries_(make_zeroed_array<u32>(source, usize{1} << hash_bits)), hash_bits_(hash_bits)
    {
    }

    explicit operator bool() const { return entries_ != nullptr; }

    /// The position entered last for the word at `pos`.
    u32 candidate(const block_text& text, u32 pos) const
    {
        return entries_[text.hash(pos, hash_bits_)];
    }

    void insert(const block_text& text, u32 pos) { entries_[text.hash(pos, hash_bits_)] = pos; }

    /// Enters `pos` and returns what it replaces.
    u32 exchange(const block_text& text, u32 pos)
    {
        return std::exchange(entries_[text.hash(pos, hash_bits_)], pos);
    }

  private:
    owned_array<u32> entries_;
    i32 hash_bits_;
};

/// Which positions of a match enter the table besides its first.
enum class inserts {
    nothing,
    inside_match, // the second, the third and the last
};

/// Greedy search: a match is taken as soon as it is found.
///
/// Every position outside a match is looked up and entered.
template <inserts Inserts, token_writer Writer>
[[nodiscard]] std::optional<Writer> search_greedy(const block_text text, search_bits bits,
                                                  scratch& memory, Writer out)
{
    fast_hash_table table(bits.hash_bits, memory.source);
    if (!table) return {};
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        const u32 cand = table.exchange(text, pos);
        if (!text.matches(pos, cand)) {
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

/// Lazy search: a match is compared with the one of the next position before it is taken.
template <token_writer Writer>
[[nodiscard]] std::optional<Writer> search_lazy(const block_text text, search_bits bits,
                                                scratch& memory, Writer out)
{
    fast_hash_table table(bits.hash_bits, memory.source);
    if (!table) return {};
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        const u32 cand = table.exchange(text, pos);
        if (!text.matches(pos, cand)) {
            out.literal(pos++);
            continue;
        }
        const found_match found{text.match_length(pos, cand), pos - cand};
        const outlook look = look_at<1>(text, pos, table.candidate(text, pos + 1), found);
        if (look.literal) {
            out.literal(pos++);
            continue;
        }
        const found_match best = look.best;
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
