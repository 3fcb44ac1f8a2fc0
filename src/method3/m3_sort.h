// method3/m3_sort.h - the order in which the symbols of a code stand
//
// Where frequencies are equal, the order of their symbols is what the course of the sort makes of
// it, so each comparison and each move below is part of the format.
#pragma once

#include "common/types.h"

#include <span>

namespace quarnex {

/// A symbol and how often it came.
struct m3_pair {
    u16 freq;
    u16 sym;
};

/// Puts pairs in the order of rising frequency: reverses them if they rise nowhere, or sorts them.
void m3_order_pairs(std::span<m3_pair> pairs);

/// Exchanges each two neighbours whose frequencies fall, once, from the front to the back.
void m3_mend_order(std::span<m3_pair> pairs);

/// Sorts pairs by a quicksort whose pivots come from `seed`; a range that has been cut `depth`
/// times goes to the heap sort.  Returns the seed as it is then.
u32 m3_sort_pairs(std::span<m3_pair> pairs, u32 depth, u32 seed);

/// Sorts pairs by a heap in which entry 0 is its own first child.
void m3_heap_sort(std::span<m3_pair> pairs);

} // namespace quarnex
