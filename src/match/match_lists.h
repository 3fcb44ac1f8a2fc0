// match/match_lists.h - one good earlier match for each position of a block, from its suffix array
//
// The suffixes that share their first bytes stand side by side in a suffix array, so the sets of
// positions with a common prefix are intervals of it, nested like a tree.  Each position gets the
// nearest earlier member of the deepest interval that has one: its longest match.  A match that is
// a little shorter and much nearer takes its place.
#pragma once

#include "common/owned_array.h"
#include "match/text.h"

#include <optional>

namespace quarnex {

/// Common prefixes and matches are not followed any farther.
inline constexpr u32 longest_listed_match = 255;
/// A shorter match is not listed.
inline constexpr u32 shortest_listed_match = 3;

struct match_lists {
    owned_array<u8> mlen;  // by position: the length of its match, or 0 if there is none
    owned_array<u32> mpos; // where the match is
};

/// Bytes that find_match_lists() takes for each byte of a block: the suffix array and the common
/// prefixes, and the lists.
inline constexpr u32 match_list_bytes = 10;

/// Lists the matches of a block of 1 to 2^31 - 1 bytes, in memory from `source`.  Nothing without
/// memory for the lists or for the suffix array.
[[nodiscard]] std::optional<match_lists> find_match_lists(const block_text& text,
                                                          const allocator& source);

/// Finds how many bytes neighbours in the suffix array `sa` (of `n` suffixes) share, at most
/// longest_listed_match: lcp[k], for k from 1 to n - 1, is that of sa[k - 1] and sa[k].  Without
/// memory (from `source`, 4 bytes for each suffix) it returns false and leaves `lcp` alone.
[[nodiscard]] bool lcp_bytes(const u8* text, const u32* sa, u32 n, u8* lcp,
                             const allocator& source);

/// Lists the matches of a block of `n` bytes in `mlen` and `mpos`, whose lengths are 0 so far, from
/// its suffix array `sa` and from the common prefixes `lcp` of neighbours, with lcp[0] and lcp[n]
/// of 0.  Uses up `sa`.
void sa_match_lists(u32* sa, u32 n, const u8* lcp, u32* mpos, u8* mlen);

/// Sorts numbers in rising order.
void sort_u32(u32* numbers, usize count);

} // namespace quarnex
