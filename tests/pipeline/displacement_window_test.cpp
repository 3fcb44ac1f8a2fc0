#include "pipeline/displacement_window.h"

#include "support/shapes.h"
#include "support/waiting.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

using test::comes_to_its_end;
using test::in_thread;
using test::still_waits;

/// Lets the blocks from `first` to `last` in, on this thread.
void enter(displacement_window& window, u32 first, u32 last)
{
    for (u32 index = first; index <= last; ++index) window.wait_to_enter(index);
}

TEST(displacement_window, blocks_up_to_120_ahead_enter_at_once)
{
    const test::time_guard guard;
    displacement_window window;
    enter(window, 0, 120);
    EXPECT_EQ(displacement_window::max_lead, 120U);
}

TEST(displacement_window, a_block_more_than_120_ahead_waits_until_the_oldest_is_done)
{
    const test::time_guard guard;
    displacement_window window;
    enter(window, 0, 120);
    const auto block = in_thread([&] { window.wait_to_enter(121); });
    EXPECT_TRUE(still_waits(block));
    window.mark_done(0);
    EXPECT_TRUE(comes_to_its_end(block));
}

TEST(displacement_window, blocks_done_out_of_order_count_when_the_oldest_is)
{
    const test::time_guard guard;
    displacement_window window;
    enter(window, 0, 120);
    const auto block = in_thread([&] { window.wait_to_enter(121); });
    for (const u32 index : {120U, 5U, 4U, 3U, 1U}) window.mark_done(index);
    EXPECT_TRUE(still_waits(block)) << "block 0 is still under way";
    window.mark_done(0);
    EXPECT_TRUE(comes_to_its_end(block));

    // 2 is the oldest now.
    window.wait_to_enter(122);
    const auto next = in_thread([&] { window.wait_to_enter(123); });
    EXPECT_TRUE(still_waits(next));
    window.mark_done(2); // 3, 4 and 5 were done before: 6 is the oldest
    EXPECT_TRUE(comes_to_its_end(next));
    enter(window, 124, 126);
    const auto last = in_thread([&] { window.wait_to_enter(127); });
    EXPECT_TRUE(still_waits(last));
    window.mark_done(6);
    EXPECT_TRUE(comes_to_its_end(last));
}

TEST(displacement_window, long_files_go_through_in_any_order_of_settling)
{
    const test::time_guard guard;
    displacement_window window;
    test::random_source random(1);
    std::vector<u32> under_way; // by number
    for (u32 index = 0; index < 20000; ++index) {
        // Where the driver would wait, blocks are done at random until the oldest is among them.
        while (!under_way.empty() && index - under_way.front() > displacement_window::max_lead) {
            const u32 any = random.below(static_cast<u32>(under_way.size()));
            window.mark_done(under_way[any]);
            under_way.erase(under_way.begin() + any);
        }
        window.wait_to_enter(index);
        under_way.push_back(index);
    }
    EXPECT_LE(under_way.back() - under_way.front(), displacement_window::max_lead);
}

TEST(displacement_window, a_driver_and_two_settling_threads_never_get_stuck)
{
    constexpr u32 blocks = 5000;
    const test::time_guard guard;
    displacement_window window;
    std::atomic<u32> entered = 0;
    const auto settle_every_other = [&](u32 first) {
        for (u32 index = first; index < blocks; index += 2) {
            while (entered <= index) std::this_thread::yield();
            window.mark_done(index);
        }
    };
    const auto even = in_thread([&] { settle_every_other(0); });
    const auto odd = in_thread([&] { settle_every_other(1); });
    for (u32 index = 0; index < blocks; ++index) {
        window.wait_to_enter(index);
        entered = index + 1;
    }
    EXPECT_TRUE(comes_to_its_end(even));
    EXPECT_TRUE(comes_to_its_end(odd));
}

} // namespace
} // namespace quarnex
