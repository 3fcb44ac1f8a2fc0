#include "common/platform/thread.h"

#include "common/platform/cpu.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace quarnex {
namespace {

TEST(platform_cpu, there_is_a_processor)
{
    EXPECT_GE(processor_count(), 1U);
}

TEST(system_thread, is_joined_by_the_destructor)
{
    std::atomic<bool> ran = false;
    {
        system_thread thread;
        EXPECT_FALSE(thread.started());
        ASSERT_TRUE(thread.start(
            [](void* context) {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                *static_cast<std::atomic<bool>*>(context) = true;
            },
            &ran));
        EXPECT_TRUE(thread.started());
    }
    EXPECT_TRUE(ran);
}

TEST(system_thread, can_be_joined_before_start_and_twice)
{
    system_thread thread;
    thread.join();
    ASSERT_TRUE(thread.start([](void*) {}, nullptr));
    thread.join();
    EXPECT_FALSE(thread.started());
    thread.join();
}

} // namespace
} // namespace quarnex
