// match/suffix_array.h - suffix array and LCP array of a block
//
// Suffixes that share their first bytes are neighbours in the suffix array, so the sets of
// positions with a common prefix are its LCP intervals (lcp_intervals.h).  Levels 8 and 9 search
// them.
//
//     1. suffix array: libdivsufsort (Mori), O(n log n)
//     2. LCP array, capped: the Phi permutation (Karkkainen, Manzini and Puglisi 2009), O(n)
#pragma once

#include "common/owned_array.h"
#include "match/text.h"

namespace quarnex {

/// How the LCP array is stored in bytes: a common prefix of `len` bytes as min(len, longest) -
/// base, or as 0 if it has fewer than `base` bytes.
struct lcp_scale {
    u32 base;
    u32 longest; // at most `base` + 255
};

/// Computes the LCP array of the suffix array `sa` of `n` suffixes (1 or more): lcp[k], for k from
/// 1 to n - 1, is the length of the common prefix of sa[k - 1] and sa[k], by `scale`; lcp[0] and
/// lcp[n] are 0.  `work` has room for `n` numbers.
void lcp_bytes(const u8* text, const u32* sa, u32 n, lcp_scale scale, u32* work, u8* lcp);

/// Positions by which prefetches run ahead in a pass over the suffix array.
inline constexpr u32 suffix_prefetch_distance = 32;

/// Positions past the end of the block for which suffix_arrays::by_position has room.
inline constexpr u32 prefetch_padding = 24;

/// A block's suffix array and LCP array, with room for the tree or the lists made from them.
struct suffix_arrays {
    u32 size = 0;
    u32* sa = nullptr;            // at the end of `room`
    u8* lcp = nullptr;            // size + 1 bytes
    lcp_scale scale{};            // of `lcp`
    owned_array<u32> room;        // `size` numbers, or twice as many
    owned_array<u32> by_position; // a work array
    owned_array<u8> lcp_memory;   // null if `lcp` is at the end of `by_position`

    /// Replaces the arrays by those for `n` suffixes, from 1 to 2^31 - 1.  With `twice`, `room` has
    /// `n` more numbers before `sa`, and the total is 12 bytes per suffix; otherwise it is 9.
    /// Returns false without memory.
    [[nodiscard]] bool allocate(u32 n, bool twice, const allocator& source);

    /// Sorts the suffixes of the block and computes their LCP array.  Overwrites the part of `room`
    /// before `sa` or, if there is none, `by_position`.  Returns false if the sorter has no memory.
    [[nodiscard]] bool sort(const block_text& text, lcp_scale lcp_as);
};

} // namespace quarnex
