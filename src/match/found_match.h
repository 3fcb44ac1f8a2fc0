// match/found_match.h - a match, and what a look-ahead makes of it
#pragma once

#include "common/better_match.h"
#include "match/text.h"

namespace quarnex {

/// A match as a search holds it; a length of 0 stands for none.
struct found_match {
    u32 len;
    u32 dist;
};

/// Whether the `Count` bytes in front of `cand` are those at `pos`, so that a match of `cand` at
/// pos + Count is one at `pos` too.  Bytes before the block differ from all others.
template <u32 Count>
bool reaches_back(const block_text& text, u32 pos, u32 cand)
{
    static_assert(Count == 1 || Count == 2);
    if (cand < Count || cand == pos) return false;
    if constexpr (Count == 1) return text.same_byte(cand - 1, pos);
    return text.same_two(cand - 2, pos);
}

/// Compares the match at `pos` with the candidate `cand` of the position `Ahead` bytes on.  True if
/// that candidate is worth a literal at `pos`; else it may have replaced the match, extended back.
template <u32 Ahead>
bool prefers_literal(const block_text& text, u32 pos, u32 cand, found_match& best)
{
    const u32 next = pos + Ahead;
    // A quick test, by a byte that a longer match would need.  It is part of the decision: it also
    // passes over matches that would win once they are extended back.
    const u32 last = best.len - (Ahead == 1 ? 1 : 0);
    if (!text.same_byte(next + last, cand + last) || !text.same_word(cand, next)) return false;
    const u32 len = text.match_length(next, cand);
    const u32 dist = next - cand;
    const auto longer = static_cast<i32>(len - best.len);
    constexpr auto ahead = static_cast<i32>(Ahead);
    if (reaches_back<Ahead>(text, pos, cand) && better_match(longer + ahead, best.dist, dist)) {
        best = {len + Ahead, dist};
        return false;
    }
    return better_match(longer - ahead, best.dist, dist);
}

} // namespace quarnex
