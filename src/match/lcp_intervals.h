// match/lcp_intervals.h - enumerates the LCP intervals of a suffix array, inner ones first
//
// Algorithm: one pass with a stack (Abouelhoda, Kurtz and Ohlebusch 2004).  The interval of length
// L is a maximal run of neighbours that share at least L bytes and of which two neighbours share
// exactly L.  Intervals are nested, so they form a tree whose leaves are the suffixes.
//
// Time: O(n).
#pragma once

#include "common/types.h"

#include <array>
#include <cassert>

namespace quarnex {

/// Longer common prefixes are capped at this length.
inline constexpr u32 max_interval_length = 256;

/// An LCP interval.
struct lcp_interval {
    u32 length;   // bytes that its members share
    u32 first;    // its first index in the suffix array
    u32 children; // intervals and suffixes directly in it
    u32 mark;     // what Visitor::add() returned for its first member
};

/// Enumerates the intervals of `n` suffixes, 1 or more.  For each index k of the suffix array, in
/// ascending order, calls
///
/// - visitor.add(k), which returns a mark;
/// - visitor.close(interval, k + 1) for each interval that ends with suffix k, inner ones first;
/// - visitor.top(mark) if no interval contains suffix k and the next one: with the mark of the
///   outermost interval that has just ended, or else that of suffix k.
///
/// `shared(k)` returns the length of the common prefix of suffixes k - 1 and k, up to
/// max_interval_length, or 0 to ignore it.  It is called once for each k from 1 to n - 1.
template <class Shared, class Visitor>
[[gnu::always_inline]] inline void visit_lcp_intervals(u32 n, Shared&& shared, Visitor& visitor)
{
    // The open intervals: those around the current index, by ascending length.
    std::array<lcp_interval, max_interval_length + 1> open;
    usize depth = 0;
    open[0] = {0, 0, 0, 0};
    for (u32 next = 1; next <= n; ++next) {
        u32 first = next - 1;
        u32 mark = visitor.add(next - 1);
        const u32 length = next < n ? shared(next) : 0;
        assert(length <= max_interval_length);
        for (; open[depth].length > length; --depth) {
            lcp_interval& ending = open[depth];
            ++ending.children;
            visitor.close(ending, next);
            first = ending.first;
            mark = ending.mark;
        }
        if (open[depth].length < length) {
            open[++depth] = {length, first, 1, mark};
        } else if (depth == 0) {
            visitor.top(mark);
        } else {
            ++open[depth].children;
        }
    }
}

} // namespace quarnex
