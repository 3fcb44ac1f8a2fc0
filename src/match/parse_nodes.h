// match/parse_nodes.h - the shortest paths of the forward parse, relaxed by runs of lengths
//
// Nodes are the positions of a window, tokens the edges between them (cost_parse.h).  A match can
// be cut to any shorter length, so it is a run of edges from one node to consecutive nodes.  Their
// prices come as an array, and the run is relaxed by vectors: the nodes are parallel arrays, and
// the choice in each is a mask instead of a branch.
//
// Most runs are short: after the first match of a position, each further one adds the lengths by
// which it is longer.  Runs of less than eight nodes are relaxed one by one.
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

/// Lengths below this have listed prices: all but a few.  (A position with a longer match is
/// followed by many that are not searched.)
inline constexpr u32 listed_lengths = 272;

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

    /// The length of a run from which on it is relaxed by vectors.
    static constexpr u32 vector_nodes = 8;

    /// Relaxes a run of at least vector_nodes nodes, by the best form for this processor.
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

    /// Relaxes the edges of tokens from `start` to `end`, `end + 1` and so on, by the prices of a
    /// run: the same as relax() for each.
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
