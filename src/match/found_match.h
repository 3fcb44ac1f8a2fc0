// match/found_match.h - a match, and what a look-ahead makes of it
#pragma once

#include "match/better_match.h"
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

/// The byte by which candidates of the position `Ahead` bytes behind `pos` are told at a glance,
/// counted from there: one that a longer match would need.  This is part of the decision: it also
/// passes over matches that would win once they are extended back.
template <u32 Ahead>
u32 glance_at(const found_match& best)
{
    return best.len - (Ahead == 1 ? 1 : 0);
}

/// What a look-ahead makes of the best match at a position.
struct outlook {
    found_match best; // as it was, or replaced
    bool literal;     // whether a literal comes first
};

/// Compares the best match at `pos` with the candidate `cand` of the position `Ahead` bytes on,
/// which has passed the glance.  Either that candidate, extended back, replaces it, or it is worth
/// a literal at `pos`, or neither.
template <u32 Ahead>
[[gnu::always_inline]] inline outlook weigh(const block_text& text, u32 pos, u32 cand,
                                            found_match best)
{
    const u32 next = pos + Ahead;
    if (!text.matches(next, cand)) return {best, false};
    const u32 len = text.match_length(next, cand);
    const u32 dist = next - cand;
    const auto longer = static_cast<i32>(len - best.len);
    constexpr auto ahead = static_cast<i32>(Ahead);
    if (reaches_back<Ahead>(text, pos, cand) && better_match(longer + ahead, best.dist, dist)) {
        return {{len + Ahead, dist}, false};
    }
    return {best, better_match(longer - ahead, best.dist, dist)};
}

/// The glance at a candidate, and what follows if it passes.
template <u32 Ahead>
[[gnu::always_inline]] inline outlook look_at(const block_text& text, u32 pos, u32 cand,
                                              found_match best)
{
    const u32 glance = glance_at<Ahead>(best);
    if (!text.same_byte(pos + Ahead + glance, cand + glance)) return {best, false};
    return weigh<Ahead>(text, pos, cand, best);
}

} // namespace quarnex
