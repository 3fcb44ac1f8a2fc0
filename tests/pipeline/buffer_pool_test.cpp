#include "pipeline/buffer_pool.h"

#include "support/waiting.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace quarnex {
namespace {

constexpr usize kib = 1024;
constexpr usize mib = 1024 * kib;

TEST(buffer_pool, a_released_buffer_is_reused)
{
    buffer_pool pool(system_allocator, 4);
    block_buffer first = pool.take(mib);
    const u8* const address = first.get();
    EXPECT_EQ(pool.idle(), 0U);
    first.reset();
    EXPECT_EQ(pool.idle(), 1U);
    const block_buffer second = pool.take(mib);
    EXPECT_EQ(second.get(), address);
    EXPECT_EQ(pool.idle(), 0U);
}

TEST(buffer_pool, buffers_in_use_are_distinct)
{
    buffer_pool pool(system_allocator, 4);
    const block_buffer first = pool.take(mib);
    const block_buffer second = pool.take(mib);
    std::fill_n(first.get(), mib, u8{1});
    std::fill_n(second.get(), mib, u8{2});
    EXPECT_EQ(std::count(first.get(), first.get() + mib, 1), static_cast<std::ptrdiff_t>(mib));
}

TEST(buffer_pool, a_buffer_is_reused_for_sizes_down_to_half_its_own)
{
    buffer_pool pool(system_allocator, 4);
    const u8* const address = pool.take(2 * mib).get();
    EXPECT_EQ(pool.take(mib + 1).get(), address);
    EXPECT_EQ(pool.take(mib).get(), address);
    EXPECT_EQ(pool.take(2 * mib).get(), address) << "the buffer keeps its full capacity";
}

TEST(buffer_pool, a_much_larger_buffer_is_not_reused)
{
    buffer_pool pool(system_allocator, 4);
    pool.take(2 * mib).reset();
    const block_buffer small = pool.take(mib - 1);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(pool.idle(), 1U);
}

TEST(buffer_pool, a_smaller_buffer_is_not_reused)
{
    buffer_pool pool(system_allocator, 4);
    pool.take(mib).reset();
    const block_buffer large = pool.take(mib + 1);
    ASSERT_NE(large, nullptr);
    std::fill_n(large.get(), mib + 1, u8{1});
    EXPECT_EQ(pool.idle(), 1U);
}

TEST(buffer_pool, the_first_fitting_buffer_is_found_among_others)
{
    buffer_pool pool(system_allocator, 4);
    block_buffer small = pool.take(256 * kib);
    block_buffer fitting = pool.take(mib);
    block_buffer large = pool.take(4 * mib);
    const u8* const address = fitting.get();
    small.reset();
    fitting.reset();
    large.reset();
    EXPECT_EQ(pool.take(mib - 10).get(), address);
    EXPECT_EQ(pool.idle(), 3U);
}

TEST(buffer_pool, the_fitting_buffer_that_was_released_last_is_taken)
{
    buffer_pool pool(system_allocator, 4);
    block_buffer first = pool.take(mib);
    block_buffer second = pool.take(mib);
    block_buffer third = pool.take(mib);
    const u8* const latest = second.get();
    const u8* const before = third.get();
    first.reset();
    third.reset();
    second.reset();
    const block_buffer taken = pool.take(mib);
    EXPECT_EQ(taken.get(), latest);
    EXPECT_EQ(pool.take(mib).get(), before);
}

TEST(buffer_pool, small_buffers_are_not_pooled)
{
    buffer_pool pool(system_allocator, 4);
    pool.take(0).reset();
    pool.take(1).reset();
    pool.take(256 * kib - 1).reset();
    EXPECT_EQ(pool.idle(), 0U);
    pool.take(256 * kib).reset();
    EXPECT_EQ(pool.idle(), 1U);
}

TEST(buffer_pool, no_more_buffers_stay_idle_than_the_limit)
{
    for (const usize limit : {0U, 1U, 3U}) {
        buffer_pool pool(system_allocator, limit);
        std::vector<block_buffer> buffers;
        for (int i = 0; i < 5; ++i) buffers.push_back(pool.take(mib));
        buffers.clear();
        EXPECT_EQ(pool.idle(), limit);
    }
}

TEST(buffer_pool, the_oldest_is_evicted_when_sizes_change)
{
    buffer_pool pool(system_allocator, 2);
    block_buffer older = pool.take(300 * kib);
    block_buffer newer = pool.take(300 * kib);
    const u8* const newer_address = newer.get();
    older.reset();
    newer.reset();
    const block_buffer large = pool.take(mib);
    EXPECT_EQ(pool.idle(), 1U);
    EXPECT_EQ(pool.take(300 * kib).get(), newer_address);
}

TEST(buffer_pool, idle_buffers_and_those_in_use_stay_within_the_total)
{
    buffer_pool pool(system_allocator, 4, 3);
    block_buffer first = pool.take(300 * kib);
    block_buffer second = pool.take(300 * kib);
    first.reset();
    second.reset();
    EXPECT_EQ(pool.idle(), 2U);
    first = pool.take(mib);
    EXPECT_EQ(pool.idle(), 2U);
    second = pool.take(mib);
    EXPECT_EQ(pool.idle(), 1U);
    block_buffer third = pool.take(100);
    EXPECT_EQ(pool.idle(), 0U) << "small buffers count";
    block_buffer fourth = pool.take(mib);
    fourth.reset();
    EXPECT_EQ(pool.idle(), 0U) << "there were more in use";
    second.reset();
    EXPECT_EQ(pool.idle(), 1U);
    EXPECT_EQ(pool.take(SIZE_MAX / 4 * 3), nullptr) << "is not counted";
    second = pool.take(mib);
    second.reset();
    EXPECT_EQ(pool.idle(), 1U);
}

TEST(buffer_pool, idle_buffers_are_freed_when_memory_is_short)
{
    buffer_pool pool(system_allocator, 3);
    pool.take(mib).reset();
    EXPECT_EQ(pool.take(SIZE_MAX / 4 * 3), nullptr);
    EXPECT_EQ(pool.idle(), 0U);
}

TEST(buffer_pool, threads_never_hold_the_same_buffer)
{
    const test::time_guard guard;
    buffer_pool pool(system_allocator, 3);
    std::atomic<int> damaged = 0;
    {
        std::vector<std::future<void>> threads;
        for (u8 mark = 1; mark <= 4; ++mark) {
            threads.push_back(test::in_thread([&, mark] {
                for (usize round = 0; round < 300; ++round) {
                    const usize size = (256 + round % 3 * 200) * kib;
                    const block_buffer buffer = pool.take(size);
                    buffer[0] = buffer[size / 2] = buffer[size - 1] = mark;
                    std::this_thread::yield();
                    if (buffer[0] != mark || buffer[size / 2] != mark || buffer[size - 1] != mark)
                        ++damaged;
                }
            }));
        }
    }
    EXPECT_EQ(damaged, 0);
    EXPECT_LE(pool.idle(), 3U);
}

} // namespace
} // namespace quarnex
