#include "common/sync.h"

#include "support/waiting.h"

#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

using test::in_thread;

TEST(sync, a_mutex_admits_one_thread_at_a_time)
{
    const test::time_guard guard;
    guard_mutex mutex;
    int counter = 0;
    {
        std::vector<std::future<void>> threads;
        for (int i = 0; i < 4; ++i) {
            threads.push_back(in_thread([&] {
                for (int round = 0; round < 5000; ++round) {
                    const scoped_lock lock(mutex);
                    ++counter;
                }
            }));
        }
    }
    EXPECT_EQ(counter, 20000);
}

TEST(sync, a_wait_unlocks_the_mutex_and_locks_it_again)
{
    const test::time_guard guard;
    guard_mutex mutex;
    guard_condition changed;
    int turn = 0;
    // Each side waits for its turn: no progress unless a wait unlocks the mutex.
    const auto play = [&](int side) {
        for (int round = 0; round < 500; ++round) {
            const scoped_lock lock(mutex);
            while (turn % 2 != side) changed.wait(mutex);
            ++turn;
            changed.notify_one();
        }
    };
    const auto other = in_thread([&] { play(1); });
    play(0);
    other.wait();
    EXPECT_EQ(turn, 1000);
}

} // namespace
} // namespace quarnex
