#include "pipeline/displacement_window.h"

#include "support/shapes.h"
#include "support/waiting.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

using test::finishes;
using test::in_thread;
using test::still_waits;

/// Enters the blocks `first` to `last` on this thread.
void enter(displacement_window& window, u32 first, u32 last)
{
    for (u32 index = first; index <= last; ++index) window.wait_to_enter(index);
}

TEST(displacement_window, blocks_up_to_120_ahead_are_admitted_immediately)
{
    const test::time_guard guard;
    displacement_window window;
    EXPECT_TRUE(finishes(in_thread([&] { enter(window, 0, 120); })));
}

TEST(displacement_window, a_block_more_than_120_ahead_waits_until_the_oldest_is_done)
{
    const test::time_guard guard;
    displacement_window window;
    enter(window, 0, 120);
    const auto block = in_thread([&] { window.wait_to_enter(121); });
    EXPECT_TRUE(still_waits(block));
    window.mark_done(0);
    EXPECT_TRUE(finishes(block));
}

TEST(displacement_window, blocks_done_out_of_order_count_once_the_oldest_is_done)
{
    const test::time_guard guard;
    displacement_window window;
    enter(window, 0, 120);
    const auto block = in_thread([&] { window.wait_to_enter(121); });
    for (const u32 index : {120U, 5U, 4U, 3U, 1U}) window.mark_done(index);
    EXPECT_TRUE(still_waits(block)) << "block 0 is still in flight";
    window.mark_done(0);
    EXPECT_TRUE(finishes(block));

    // Block 2 is now the oldest.
    window.wait_to_enter(122);
    const auto next = in_thread([&] { window.wait_to_enter(123); });
    EXPECT_TRUE(still_waits(next));
    window.mark_done(2); // 3, 4 and 5 are already done: 6 is the oldest
    EXPECT_TRUE(finishes(next));
    enter(window, 124, 126);
    const auto last = in_thread([&] { window.wait_to_enter(127); });
    EXPECT_TRUE(still_waits(last));
    window.mark_done(6);
    EXPECT_TRUE(finishes(last));
}

TEST(displacement_window, long_files_complete_in_any_order_of_blocks)
{
    const test::time_guard guard;
    displacement_window window;
    test::random_source random(1);
    std::vector<u32> in_flight; // by number
    const auto run = [&] {
        for (u32 index = 0; index < 20000; ++index) {
            // When the driver would wait, mark random blocks done until the oldest is among them.
            while (!in_flight.empty() &&
                   index - in_flight.front() > displacement_window::max_lead) {
                const u32 any = random.below(static_cast<u32>(in_flight.size()));
                window.mark_done(in_flight[any]);
                in_flight.erase(in_flight.begin() + any);
            }
            window.wait_to_enter(index);
            in_flight.push_back(index);
        }
    };
    EXPECT_TRUE(finishes(in_thread(run)));
    const u32 oldest = in_flight.front();
    const auto block = in_thread([&] { window.wait_to_enter(oldest + 121); });
    EXPECT_TRUE(still_waits(block)) << "the oldest is the one that the test counts";
    window.mark_done(oldest);
    EXPECT_TRUE(finishes(block));
}

TEST(displacement_window, a_driver_and_two_threads_that_mark_blocks_never_deadlock)
{
    constexpr u32 blocks = 5000;
    const test::time_guard guard;
    displacement_window window;
    std::atomic<u32> entered = 0;
    const auto mark_every_other = [&](u32 first) {
        for (u32 index = first; index < blocks; index += 2) {
            while (entered <= index) std::this_thread::yield();
            window.mark_done(index);
        }
    };
    const auto even = in_thread([&] { mark_every_other(0); });
    const auto odd = in_thread([&] { mark_every_other(1); });
    for (u32 index = 0; index < blocks; ++index) {
        window.wait_to_enter(index);
        entered = index + 1;
    }
    EXPECT_TRUE(finishes(even));
    EXPECT_TRUE(finishes(odd));
}

} // namespace
} // namespace quarnex
