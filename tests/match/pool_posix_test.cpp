#include "match/pool.h"

#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(pool, reserves_less_if_the_system_refuses)
{
    pool huge(system_allocator, pool::max_bytes);
    EXPECT_NE(huge.alloc(100), no_block);
    const test::short_of_memory limit(rlim_t{64} << 20);
    pool memory(system_allocator, 1 << 30);
    for (int i = 0; i < 1000; ++i) ASSERT_NE(memory.alloc(pool::large_limit), no_block);
}

TEST(pool, has_no_blocks_if_nothing_can_be_reserved)
{
    const test::short_of_memory limit(0);
    pool memory(system_allocator, 64 << 20);
    EXPECT_EQ(memory.alloc(1), no_block);
}

} // namespace
} // namespace quarnex
