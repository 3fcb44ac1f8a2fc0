#include "pipeline/block_counter.h"

#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::finishes;
using test::in_thread;
using test::still_waits;

TEST(block_counter, waiting_without_blocks_in_flight_returns_at_once)
{
    const test::time_guard guard;
    block_counter blocks;
    EXPECT_TRUE(finishes(in_thread([&] { blocks.wait_for_none(); })));
    blocks.enter();
    blocks.leave();
    EXPECT_TRUE(finishes(in_thread([&] { blocks.wait_for_none(); })));
}

TEST(block_counter, waits_for_every_block_that_has_entered)
{
    const test::time_guard guard;
    block_counter blocks;
    blocks.enter();
    blocks.enter();
    const auto waiter = in_thread([&] { blocks.wait_for_none(); });
    EXPECT_TRUE(still_waits(waiter));
    blocks.leave();
    EXPECT_TRUE(still_waits(waiter));
    blocks.leave();
    EXPECT_TRUE(finishes(waiter));
}

TEST(block_counter, waits_until_fewer_blocks_than_the_limit_are_in_flight)
{
    const test::time_guard guard;
    block_counter blocks;
    for (u32 i = 0; i < 4; ++i) blocks.enter();
    blocks.wait_for_fewer_than(5);
    const auto waiter = in_thread([&] { blocks.wait_for_fewer_than(3); });
    blocks.leave();
    EXPECT_TRUE(still_waits(waiter)) << "three are left";
    blocks.leave();
    EXPECT_TRUE(finishes(waiter));
}

TEST(block_counter, blocks_that_leave_on_several_threads_are_all_counted)
{
    constexpr u32 of_each = 5000;
    const test::time_guard guard;
    block_counter blocks;
    for (u32 i = 0; i < 2 * of_each + 1; ++i) blocks.enter();
    const auto leave = [&] {
        for (u32 i = 0; i < of_each; ++i) blocks.leave();
    };
    const auto first = in_thread(leave);
    const auto second = in_thread(leave);
    EXPECT_TRUE(finishes(first));
    EXPECT_TRUE(finishes(second));
    const auto waiter = in_thread([&] { blocks.wait_for_none(); });
    EXPECT_TRUE(still_waits(waiter)) << "one block is left";
    blocks.leave();
    EXPECT_TRUE(finishes(waiter));
}

} // namespace
} // namespace quarnex
