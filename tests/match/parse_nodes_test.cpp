#include "match/parse_nodes.h"

#include "support/shapes.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace quarnex {
namespace {

using test::random_source;
using relax_form = decltype(parse_nodes::relax_long);

/// The forms that this processor can run.
std::vector<relax_form> all_forms()
{
    if (has_avx2()) return {relax_long_portable, relax_long_avx2};
    return {relax_long_portable};
}

std::unique_ptr<parse_nodes> random_nodes(random_source& random, u32 spread)
{
    auto nodes = std::make_unique<parse_nodes>();
    nodes->clear(parse_nodes::max_count - 1);
    for (u32 k = 0; k < parse_nodes::max_count; ++k) {
        if (random.below(4) == 0) continue; // unreached
        nodes->cost[k] = static_cast<i32>(random.below(spread) - spread / 2);
        nodes->prev[k] = random.next();
        nodes->dist[k] = random.next();
    }
    return nodes;
}

bool equal(const parse_nodes& a, const parse_nodes& b)
{
    return a.cost == b.cost && a.prev == b.prev && a.dist == b.dist;
}

/// Relaxes random runs in each form and by single nodes, and compares all nodes.  Costs and prices
/// are spread over `spread` values, half of them negative.
void expect_equal_forms(u32 spread, u64 seed)
{
    random_source random(seed);
    for (u32 count = 0; count <= 300; ++count) {
        const auto before = random_nodes(random, spread);
        const u32 start = random.below(max_window);
        const u32 distance = random.next();
        // Every fourth run ends at the last node.
        const u32 room = parse_nodes::max_count - count - start;
        const u32 end = start + 1 + (count % 4 == 0 ? room - 1 : random.below(room));
        const std::unique_ptr<u32[]> prices(new u32[count]); // exact, for sanitizers
        const u32 common = random.next();
        for (u32 k = 0; k < count; ++k) {
            prices[k] = random.below(spread) - spread / 2 - common;
            // Some ties with the old path, some sums that are larger or smaller by one.
            if (random.below(4) != 0) continue;
            const u32 same = static_cast<u32>(before->cost[end + k] - i64{before->cost[start]});
            prices[k] = same + random.below(3) - 1 - common;
        }

        const auto expected = std::make_unique<parse_nodes>(*before);
        for (u32 k = 0; k < count; ++k) {
            expected->relax(start, end + k, prices[k] + common, distance);
        }
        const price_run run{prices.get(), count, common};
        const auto got = std::make_unique<parse_nodes>(*before);
        got->relax(start, end, run, distance);
        ASSERT_TRUE(equal(*got, *expected)) << count;
        if (count < parse_nodes::vector_nodes) continue;
        for (const relax_form form : all_forms()) {
            *got = *before;
            form(*got, start, end, run, distance);
            ASSERT_TRUE(equal(*got, *expected)) << count;
        }
    }
}

TEST(parse_nodes, a_run_is_relaxed_like_its_single_nodes)
{
    for (u64 seed = 1; seed <= 20; ++seed) expect_equal_forms(1000000, seed);
}

TEST(parse_nodes, a_run_is_relaxed_like_its_single_nodes_where_ties_are_frequent)
{
    for (u64 seed = 1; seed <= 20; ++seed) expect_equal_forms(4, seed);
}

TEST(parse_nodes, a_run_is_relaxed_like_its_single_nodes_where_sums_wrap_around)
{
    for (u64 seed = 1; seed <= 20; ++seed) expect_equal_forms(0xFFFFFFFF, seed);
}

TEST(parse_nodes, a_run_takes_nodes_only_where_it_is_strictly_cheaper)
{
    constexpr u32 count = 11;
    for (const relax_form form : all_forms()) {
        const auto nodes = std::make_unique<parse_nodes>();
        nodes->clear(30);
        nodes->cost[2] = 100;
        std::array<u32, count> prices;
        for (u32 k = 0; k < count; ++k) {
            nodes->relax(0, 5 + k, 150, 7);
            prices[k] = 49 + k % 3 - 5; // sums 149, 150, 151
        }
        form(*nodes, 2, 5, {prices.data(), count, 5}, 9);
        for (u32 k = 0; k < count; ++k) {
            EXPECT_EQ(nodes->cost[5 + k], k % 3 == 0 ? 149 : 150) << k;
            EXPECT_EQ(nodes->prev[5 + k], k % 3 == 0 ? 2U : 0U) << k;
            EXPECT_EQ(nodes->dist[5 + k], k % 3 == 0 ? 9U : 7U) << k;
        }
        EXPECT_EQ(nodes->cost[4], parse_nodes::unreached_cost);
        EXPECT_EQ(nodes->cost[5 + count], parse_nodes::unreached_cost);
    }
}

} // namespace
} // namespace quarnex
