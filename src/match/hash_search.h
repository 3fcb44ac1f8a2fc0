// match/hash_search.h - the searches of levels 0 to 2: one candidate for a hash value
//
// A table holds the latest position for each hash value.  It starts as all zero, so position 0 is
// an ordinary candidate everywhere and no empty test is needed: every candidate is verified by its
// first four bytes, and a stale or shared entry costs time but never correctness.
#pragma once

#include "common/better_match.h"
#include "common/owned_array.h"
#include "match/concepts.h"
#include "match/text.h"

#include <utility>

namespace quarnex {

/// The latest position for each of 2^bits hash values.
class fast_hash_table {
  public:
    /// A table with all entries at the block's start.  Without memory it converts to false.
    explicit fast_hash_table(u32 bits)
        : slots_(make_zeroed_array<u32>(usize{1} << bits)), bits_(bits)
    {
    }

    explicit operator bool() const { return slots_ != nullptr; }

    /// The position entered last for the word at `pos`.
    u32 candidate(const block_text& text, u32 pos) const { return slots_[text.hash(pos, bits_)]; }

    void insert(const block_text& text, u32 pos) { slots_[text.hash(pos, bits_)] = pos; }

    /// Enters `pos` and returns what it replaces.
    u32 exchange(const block_text& text, u32 pos)
    {
        return std::exchange(slots_[text.hash(pos, bits_)], pos);
    }

  private:
    owned_array<u32> slots_;
    u32 bits_;
};

/// Which positions of a match enter the table besides its first.
enum class inserts {
    nothing,
    inside_match, // the second, the third and the last
};

/// Greedy search: a match is taken as soon as it is found.
///
/// Every position outside a match is looked up and entered.  Stops early when `out` is full.
template <inserts Inserts, token_writer Writer>
[[nodiscard]] Writer search_greedy(const block_text text, fast_hash_table& table, Writer out)
{
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        const u32 cand = table.exchange(text, pos);
        if (!text.same_word(cand, pos)) {
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

/// What one position of look-ahead says about a match found at `pos`.
enum class look_ahead { match, literal };

struct found_match {
    u32 len;
    u32 dist;
};

/// Compares the match at `pos` with the candidate `cand` of the next position.  Either that
/// candidate, extended one byte back, replaces the match, or it is worth a literal at `pos`.
inline look_ahead look_at_next(const block_text& text, u32 pos, u32 cand, found_match& best)
{
    const u32 next = pos + 1;
    // A match at `next` that is not longer than len - 1 can't matter.
    if (!text.same_byte(next + best.len - 1, cand + best.len - 1)) return look_ahead::match;
    if (!text.same_word(cand, next)) return look_ahead::match;
    const u32 len = text.match_length(next, cand);
    const u32 dist = next - cand;
    const auto longer = static_cast<i32>(len - best.len);
    const bool reaches_back = cand != 0 && cand != pos && text.same_byte(cand - 1, pos);
    if (reaches_back && better_match(longer + 1, best.dist, dist)) {
        best = {len + 1, dist};
        return look_ahead::match;
    }
    return better_match(longer - 1, best.dist, dist) ? look_ahead::literal : look_ahead::match;
}

/// Lazy search: a match is compared with the one of the next position before it is taken.
///
/// Stops early when `out` is full.
template <token_writer Writer>
[[nodiscard]] Writer search_lazy(const block_text text, fast_hash_table& table, Writer out)
{
    for (u32 pos = Writer::first_pos; pos < text.size && !out.full();) {
        const u32 cand = table.exchange(text, pos);
        if (!text.same_word(cand, pos)) {
            out.literal(pos++);
            continue;
        }
        found_match best{text.match_length(pos, cand), pos - cand};
        const u32 next_cand = table.candidate(text, pos + 1);
        if (look_at_next(text, pos, next_cand, best) == look_ahead::literal) {
            out.literal(pos++);
            continue;
        }
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
