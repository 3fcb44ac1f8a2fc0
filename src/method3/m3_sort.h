// method3/m3_sort.h - sorts the symbols of a code by frequency
//
// Introsort (Musser 1997): quicksort with pseudo-random pivots, insertion sort for short ranges,
// heap sort beyond a depth limit, O(n log n).  The sort is not stable: the order of symbols with
// equal frequencies, and with it the assignment of codes, results from the exact sequence of
// comparisons and swaps.  That sequence is therefore part of the format, and no library sort can
// replace it.
#pragma once

#include "common/types.h"

#include <span>

namespace quarnex {

/// A symbol and its frequency.
struct m3_pair {
    u16 freq;
    u16 sym;
};

/// Orders pairs by non-decreasing frequency: reverses them if they are non-increasing, sorts them
/// otherwise.
void m3_order_pairs(std::span<m3_pair> pairs);

/// Swaps neighbours whose frequencies decrease, in one pass from the first pair to the last.
void m3_bubble_pass(std::span<m3_pair> pairs);

/// Sorts pairs by quicksort with pivots drawn by a generator with the state `seed`.  A range that
/// has been partitioned `depth` times goes to the heap sort.  Returns the generator's state.
u32 m3_sort_pairs(std::span<m3_pair> pairs, u32 depth, u32 seed);

/// Sorts pairs by a heap in which the children of entry i are 2i and 2i + 1, so that entry 0 is its
/// own first child.
void m3_heap_sort(std::span<m3_pair> pairs);

} // namespace quarnex
