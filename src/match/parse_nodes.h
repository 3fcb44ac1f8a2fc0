// match/parse_nodes.h - the shortest paths of the forward parse, relaxed with SIMD
//
// Nodes are the positions of a window, tokens the edges between them (cost_parse.h).  A match can
// be cut to any shorter length, so it is a run of edges from one node to consecutive nodes.  Their
// prices come as an array, and a run is relaxed with vector instructions: the nodes are stored as
// parallel arrays, and a mask instead of a branch selects the cheaper path of each.
//
// Most runs are short: after the first match of a position, each further one adds only the lengths
// by which it is longer.  The edges of runs of less than eight nodes are relaxed one by one.
#pragma once

#include "common/vector_instructions.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

namespace quarnex {

/// Maximum number of positions in a window.
inline constexpr u32 max_window = 4096;

/// Positions by which a match of the forward parse can extend past the window.
inline constexpr u32 window_overhang = 2048;

/// Prices of lengths below this are tabulated.  Longer ones are rare: after a longer match, many
/// positions are not searched.
inline constexpr u32 tabulated_lengths = 272;

/// Prices of tokens of consecutive lengths: `prices[k] + common`, modulo 2^32, for k below `count`.
struct price_run {
    const u32* prices;
    u32 count;
    u32 common;
};

/// Shortest paths from the start of a window to its positions and to those just past it, as
/// parallel arrays by position.
struct parse_nodes {
    static constexpr u32 max_count = max_window + window_overhang + 1;
    static constexpr i32 unreached_cost = 0x3FFFFFFF;
    static constexpr u32 unreached = UINT32_MAX;

    /// Shorter runs are relaxed one node at a time.
    static constexpr u32 vector_nodes = 8;

    /// Relaxes a run of at least vector_nodes nodes: the fastest form for this processor.
    void (*relax_long)(parse_nodes& nodes, u32 start, u32 end, const price_run& run,
                       u32 distance) = best_relax_long();

    std::array<i32, max_count> cost; // of the shortest path
    std::array<u32, max_count> prev; // where its last token starts
    std::array<u32, max_count> dist; // distance of its last token, 0 for a literal, or unreached

    /// Resets nodes 0 (the start) through `last`.
    void clear(u32 last)
    {
        assert(last < max_count);
        for (u32 k = 1; k <= last; ++k) prev[k] = k - 1;
        std::fill_n(cost.begin(), last + 1, unreached_cost);
        std::fill_n(dist.begin(), last + 1, unreached);
        cost[0] = 0;
        prev[0] = 0;
    }

    /// Relaxes the edge of a token from `start` to `end`: takes it if it is strictly cheaper.
    void relax(u32 start, u32 end, u32 price, u32 distance)
    {
        assert(start < end && end < max_count);
        const auto sum = static_cast<i32>(static_cast<u32>(cost[start]) + price);
        const bool cheaper = sum < cost[end];
        cost[end] = cheaper ? sum : cost[end];
        prev[end] = cheaper ? start : prev[end];
        dist[end] = cheaper ? distance : dist[end];
    }

    /// Relaxes the edges from `start` to `end`, `end + 1` and so on, with the prices of a run.  The
    /// result is the same as with relax() for each.
    void relax(u32 start, u32 end, const price_run& run, u32 distance)
    {
        assert(start < end && end + run.count <= max_count);
        if (run.count >= vector_nodes) {
            relax_long(*this, start, end, run, distance);
            return;
        }
        for (u32 k = 0; k < run.count; ++k) {
            relax(start, end + k, run.prices[k] + run.common, distance);
        }
    }

    /// Reverses, in place, the path to the farthest node reached: for each node on it, `prev` is
    /// now the end of the token that starts there, and `dist` the token's distance.  Returns the
    /// path's end.
    u32 reverse_path(u32 last)
    {
        u32 end = last;
        while (dist[end] == unreached) {
            assert(end > 1); // a literal reaches node 1
            --end;
        }
        u32 next = end;
        u32 token_dist = dist[end];
        for (u32 at = prev[end]; next != 0;) {
            const u32 before = prev[at];
            prev[at] = next;
            next = at;
            at = before;
            std::swap(dist[next], token_dist);
        }
        return end;
    }

  private:
    static decltype(relax_long) best_relax_long();
};

// The forms of relax_long.

void relax_long_portable(parse_nodes& nodes, u32 start, u32 end, const price_run& run,
                         u32 distance);
/// Needs has_avx2().
void relax_long_avx2(parse_nodes& nodes, u32 start, u32 end, const price_run& run, u32 distance);

inline decltype(parse_nodes::relax_long) parse_nodes::best_relax_long()
{
    return has_avx2() ? relax_long_avx2 : relax_long_portable;
}

} // namespace quarnex
