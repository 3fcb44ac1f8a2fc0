// match/found_match.h - the match a search holds, and lazy evaluation of the next positions
//
// Lazy evaluation as in DEFLATE (Deutsch 1996, RFC 1951): before a match is taken, the positions
// after it are searched too.  There, only a longer match one position on makes the first one a
// literal.  Here a later candidate is judged by length and distance (better_match.h); and it can
// also replace the match without a literal, if extending it back reaches the same position.
#pragma once

#include "match/better_match.h"
#include "match/text.h"

#include <cassert>

namespace quarnex {

/// A match as a search holds it; a length of 0 stands for none.
struct found_match {
    u32 len;
    u32 dist;
};

/// True if the `Count` bytes before `cand` equal those at `pos`, so that a match of `cand` at
/// pos + Count extends back to `pos`.  Bytes before the block equal no others.
template <u32 Count>
bool extends_back(const block_text& text, u32 pos, u32 cand)
{
    static_assert(Count == 1 || Count == 2);
    if (cand < Count || cand == pos) return false;
    if constexpr (Count == 1) return text.same_byte(cand - 1, pos);
    return text.same_two(cand - 2, pos);
}

/// Offset from pos + Ahead of the byte that a candidate there must share to be considered: one that
/// a longer match needs.  The rejection is part of the parse: it also drops candidates that would
/// win once they were extended back.
template <u32 Ahead>
u32 reject_offset(const found_match& best)
{
    assert(best.len >= 4);
    return best.len - (Ahead == 1 ? 1 : 0);
}

/// Result of comparing the best match at a position with candidates of a later one.
struct lookahead_result {
    found_match best; // unchanged or replaced
    bool literal;     // true if the position becomes a literal
};

/// Compares the best match at `pos` with `cand`, a candidate of pos + Ahead that was not rejected.
/// The candidate replaces the match if it extends back to `pos` and is better then; or it makes
/// `pos` a literal; or neither.
template <u32 Ahead>
[[gnu::always_inline]] inline lookahead_result try_lookahead(const block_text& text, u32 pos,
                                                             u32 cand, found_match best)
{
    const u32 next = pos + Ahead;
    if (!text.matches(next, cand)) return {best, false};
    const u32 len = text.match_length(next, cand);
    const u32 dist = next - cand;
    const auto longer = static_cast<i32>(len - best.len);
    constexpr auto ahead = static_cast<i32>(Ahead);
    if (extends_back<Ahead>(text, pos, cand) && better_match(longer + ahead, best.dist, dist)) {
        return {{len + Ahead, dist}, false};
    }
    return {best, better_match(longer - ahead, best.dist, dist)};
}

/// Rejects the candidate by one byte or compares it with the best match at `pos`.
template <u32 Ahead>
[[gnu::always_inline]] inline lookahead_result compare_lookahead(const block_text& text, u32 pos,
                                                                 u32 cand, found_match best)
{
    const u32 offset = reject_offset<Ahead>(best);
    if (!text.same_byte(pos + Ahead + offset, cand + offset)) return {best, false};
    return try_lookahead<Ahead>(text, pos, cand, best);
}

} // namespace quarnex
