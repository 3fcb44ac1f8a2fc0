// match/match_lists.h - match finder of level 8: one earlier match per position, from a suffix
// array
//
// Algorithm: suffixes that share their first bytes are neighbours in the suffix array, so the sets
// of positions with a common prefix are its LCP intervals (Abouelhoda, Kurtz and Ohlebusch 2004),
// nested like a tree.  Each position gets the nearest earlier member of the deepest interval that
// has one: its longest match, at its shortest distance.  A match one or two bytes shorter and much
// nearer replaces it.
//
//     1. suffix array: libdivsufsort (Mori), O(n log n)
//     2. LCP array, capped at 255: the Phi permutation (Karkkainen, Manzini and Puglisi 2009), O(n)
//     3. the intervals, bottom-up with a stack; the members of each are sorted by position by
//        merging smaller parts into the largest
//
// Time of step 3: an interval of up to 16384 members sorts and merges all its parts but the
// largest, so a position is in a merged part at most 14 times; members of the largest part are
// moved without being compared with each other, once for each of up to 253 nested intervals. Larger
// intervals keep only their positions without a match, and pass on one. Memory: 12 bytes for each
// byte of the block, which the lists keep; 10, of which 5 stay for the parse, in blocks too large
// for a tree.
//
// The textbook form, the longest previous factor (Crochemore and Ilie 2008), is linear, but gives
// any earlier position, not the nearest, and no shorter matches.
#pragma once

#include "common/owned_array.h"
#include "match/suffix_array.h"
#include "match/text.h"

#include <optional>

namespace quarnex {

/// Common prefixes and matches are cut to this length.
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
};

/// Upper bound on the memory of find_match_lists() for a block of `n` bytes, in bytes: the suffix
/// array, the LCP array and a tree or the lists take 12 per position, or 10 in blocks too large for
/// a tree.
constexpr u64 match_list_memory(u32 n)
{
    return u64{12} * n + 128;
}

/// Lists the matches of a block of 1 to 2^31 - 1 bytes, in memory from `source`.  Returns nothing
/// if that has no memory; if the suffix sorter has none of its own, lists without a match.
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
