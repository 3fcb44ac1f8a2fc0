#include "pipeline/buffer_pool.h"

#include "support/limits.h"
#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr usize mib = 1 << 20;

TEST(buffer_pool, returns_null_without_memory_and_still_works_later)
{
    buffer_pool pool(system_allocator, 2);
    EXPECT_EQ(pool.take(SIZE_MAX / 4 * 3), nullptr);
    {
        const test::short_of_memory limit;
        EXPECT_EQ(pool.take(1024 * mib), nullptr);
    }
    EXPECT_NE(pool.take(mib), nullptr);
}

TEST(buffer_pool, memory_of_idle_buffers_is_freed_for_a_larger_one)
{
    if (test::under_sanitizer) GTEST_SKIP() << "a sanitizer keeps freed memory for a while";
    buffer_pool pool(system_allocator, 3);
    block_buffer first = pool.take(200 * mib);
    block_buffer second = pool.take(200 * mib);
    const test::short_of_memory limit(mib);
    EXPECT_EQ(pool.take(390 * mib), nullptr);
    first.reset();
    second.reset();
    EXPECT_NE(pool.take(390 * mib), nullptr);
}

} // namespace
} // namespace quarnex
