#include "pipeline/buffer_pool.h"

#include "support/limits.h"
#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr usize mib = 1 << 20;

TEST(buffer_pool, gives_null_when_there_is_no_memory_and_serves_on)
{
    buffer_pool pool(system_allocator, 2);
    EXPECT_EQ(pool.take(SIZE_MAX / 4 * 3), nullptr);
    {
        const test::short_of_memory limit;
        EXPECT_EQ(pool.take(1024 * mib), nullptr);
    }
    EXPECT_NE(pool.take(mib), nullptr);
}

TEST(buffer_pool, what_idle_buffers_held_can_serve_a_larger_one)
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
