#include "match/better_match.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

struct better_match_case {
    i32 longer;
    u32 dist;
    u32 cand_dist;
    bool better;
};

constexpr u32 max_dist = 0xFFFFFFFF;

constexpr better_match_case cases[] = {
    // Two bytes more wins at any distance.
    {2, 1, max_dist, true},
    {2, 0, max_dist, true},
    {1000, 1, max_dist, true},
    // One byte more wins if it is nearer, or less than about eight times as far: 16 >> 3 is 2.
    {1, 5, 4, true},
    {1, 5, 5, true},
    {1, 3, 16, true},
    {1, 2, 15, true},
    {1, 2, 16, false},
    {1, 2, 23, false},
    {1, 3, 23, true},
    {1, 3, 24, false},
    {1, 1, 7, true},
    {1, 1, 8, false},
    {1, 0, 0, false},
    {1, 0, 7, false},
    // Equal length: the nearer one wins.
    {0, 5, 4, true},
    {0, 5, 5, false},
    {0, 5, 6, false},
    {0, 1, 0, true},
    {0, 0, 0, false},
    // One byte less wins only if it is more than eight times nearer: 24 >> 3 is 3.
    {-1, 24, 2, true},
    {-1, 24, 3, false},
    {-1, 23, 2, false},
    {-1, 23, 1, true},
    {-1, 31, 2, true},
    {-1, 31, 3, false},
    {-1, 7, 0, false},
    {-1, 8, 0, true},
    {-1, 8, 1, false},
    // Two bytes less never wins.
    {-2, max_dist, 0, false},
    {-2, max_dist, 1, false},
    {-1000, max_dist, 1, false},
    // Distances of 2^31 and more are large, not negative.
    {0, 0x80000000, 1, true},
    {0, 1, 0x80000000, false},
    {0, max_dist, 0x80000000, true},
    {1, 0x10000000, 0x80000000, false},
    {1, 0x10000001, 0x80000000, true},
    {-1, 0x80000000, 0x0FFFFFFF, true},
    {-1, 0x80000000, 0x10000000, false},
};

TEST(better_match, trades_length_for_distance_at_every_threshold)
{
    for (const auto& [longer, dist, cand_dist, better] : cases) {
        EXPECT_EQ(better_match(longer, dist, cand_dist), better)
            << longer << " longer, from " << dist << " to " << cand_dist;
    }
}

} // namespace
} // namespace quarnex
