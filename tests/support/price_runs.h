// support/price_runs.h - what a price list says of runs of lengths
#pragma once

#include "match/cost_parse.h"
#include "support/shapes.h"

#include <gtest/gtest.h>
#include <vector>

namespace quarnex::test {

/// Returns distances from 1 to `max_dist`: all short ones, those next to powers of two and to the
/// middle between two, and random ones.
inline std::vector<u32> many_distances(u32 max_dist)
{
    std::vector<u32> dists;
    const auto add = [&](u32 dist) {
        if (dist >= 1 && dist <= max_dist) dists.push_back(dist);
    };
    for (u32 dist = 1; dist <= 20; ++dist) add(dist);
    random_source random(1);
    for (u32 width = 5; width < 32; ++width) {
        for (const u32 at : {1U << width, 3U << (width - 1)}) {
            for (const u32 dist : {at - 1, at, at + 1, at + 2}) add(dist);
        }
        add((1U << width) + random.below(1U << width));
    }
    return dists;
}

/// Expects the runs of a match to have the prices of its single lengths: a run that starts at each
/// length below tabulated_lengths, and none for longer ones.
template <class Price>
void expect_runs_like_single_lengths(const Price& price, u32 min_match)
{
    for (u32 len = min_match; len < tabulated_lengths; ++len) {
        const price_run run = price.run(len);
        ASSERT_GE(run.count, 1U) << len;
        ASSERT_LE(len + run.count, tabulated_lengths);
        for (u32 k = 0; k < run.count; ++k) {
            ASSERT_EQ(run.prices[k] + run.common, price(len + k)) << len << " and " << k;
        }
    }
    for (u32 len = tabulated_lengths; len <= max_window + window_overhang; ++len) {
        ASSERT_EQ(price.run(len).count, 0U) << len;
    }
}

} // namespace quarnex::test
