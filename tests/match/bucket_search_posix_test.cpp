#include "match/bucket_search.h"

#include "support/scoped_limits.h"
#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(bucket_search, gives_nothing_without_memory_for_its_table)
{
    using recorder = test::token_recorder<1>;
    const test::bytes block(100);
    const block_text text{block.data(), 50};
    constexpr auto search_pairs = search_buckets<pair_table<0>, recorder>;
    constexpr auto search_rings = search_buckets<ring_table, recorder>;
    const test::short_of_memory limit;
    EXPECT_FALSE(search_pairs(text, {28, 1}, {}).has_value());
    EXPECT_FALSE(search_rings(text, {28, 2}, {}).has_value());
}

} // namespace
} // namespace quarnex
