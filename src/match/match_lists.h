// match/match_lists.h - match finder of level 8: one earlier match per position, from a suffix
// array
//
// Algorithm: suffixes that share their first bytes are neighbours in the suffix array, so the sets
// of positions with a common prefix are its LCP intervals (Abouelhoda, Kurtz and Ohlebusch 2004),
// nested like a tree.  Each position gets the nearest earlier member of the deepest interval that
// has one: its longest match, at its shortest distance.  A match one or two bytes shorter and much
// nearer replaces it.
//
// The suffix array and its LCP array (suffix_array.h) are searched in one of two ways.  Both give
// the same lists:
//
// - in blocks from 128 KiB on, if positions have some intervals around them, but few (12), by
//   walking up the tree of intervals from each position (path_lists.h);
// - otherwise by merging: the intervals are enumerated bottom-up, and the members of each are
//   sorted by position, by merging smaller parts into the largest.
//
// Time of merging: an interval of up to 16384 members sorts and merges all its parts but the
// largest, so a position is in a merged part at most 14 times; members of the largest part are
// moved without being compared with each other, once for each of up to 253 nested intervals. Larger
// intervals keep only their positions without a match, and pass on one.  Memory: 10 bytes for each
// byte of the block, 12 with the tree.
//
// The textbook form, the longest previous factor (Crochemore and Ilie 2008), is linear, but gives
// any earlier position, not the nearest, and no shorter matches.
#pragma once

#include "common/owned_array.h"
#include "match/lcp_tree.h"
#include "match/text.h"

#include <optional>

namespace quarnex {

/// Common prefixes and matches are capped at this length.
inline constexpr u32 max_listed_match = 255;
/// Shorter matches are not listed.
inline constexpr u32 min_listed_match = 3;

/// In larger intervals only positions without a match of an inner interval take part.
inline constexpr u32 max_full_interval = 16384;

/// The scale of an LCP array for match lists.
inline constexpr lcp_scale match_list_scale{0, max_listed_match};

struct match_lists {
    owned_array<u8> mlen;  // by position: length of its match, 0 for none
    owned_array<u32> mpos; // by position: where its match is
    // In blocks with room for a tree the two keep its memory: 12 bytes per position.
};

/// True if an offer of `len` bytes at `dist` replaces a longer match of `listed` bytes at
/// `listed_dist`: it is one or two bytes shorter and much nearer.
constexpr bool replaces_match(u32 len, u32 dist, u32 listed, u32 listed_dist)
{
    return (listed == len + 1 && dist < listed_dist >> 5) ||
           (listed == len + 2 && dist < listed_dist >> 9);
}

/// Upper bound on the memory of find_match_lists() for a block of `n` bytes: that of a tree; or the
/// suffix array and the LCP array (5) and the lists (5), one of which is a work array at first.
constexpr u64 match_list_memory(u32 n)
{
    return can_have_tree(n) ? lcp_tree::memory_for(n) : u64{10} * n + 128;
}

/// Lists the matches of a block of 1 to 2^31 - 1 bytes, in memory from `source`.  Returns nothing
/// without that memory; lists without a match if the sorter has none.
[[nodiscard]] std::optional<match_lists> find_match_lists(const block_text& text,
                                                          const allocator& source);

/// Lists the matches of a block of `n` bytes (1 or more) in `mlen` and `mpos`, from its suffix
/// array `sa` and its LCP array `lcp`, where lcp[0] and lcp[n] are 0.  `mlen` is all zero at first.
/// Overwrites `sa`.
void sa_match_lists(u32* sa, u32 n, const u8* lcp, u32* mpos, u8* mlen);

/// The same memory as an array of bytes.
owned_array<u8> as_bytes(owned_array<u32> numbers);

/// Sorts numbers in ascending order; in linear time if they are in descending order.
void sort_u32(u32* numbers, usize count);

} // namespace quarnex
