#include "common/platform/thread.h"

#include "support/scoped_limits.h"

#include <csignal>
#include <gtest/gtest.h>

namespace quarnex::test {
namespace {

TEST(system_thread, a_failed_start_is_reported)
{
    const short_of_threads limit;
    system_thread thread;
    EXPECT_FALSE(thread.start([](void*) {}, nullptr));
    EXPECT_FALSE(thread.started());
}

TEST(system_thread, handles_no_signals_of_the_process)
{
    const auto read_mask = [](void* mask) {
        pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t*>(mask));
    };
    sigset_t before;
    sigset_t inside;
    sigset_t after;
    read_mask(&before);
    system_thread thread;
    ASSERT_TRUE(thread.start(read_mask, &inside));
    thread.join();
    read_mask(&after);
    for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGCHLD, SIGUSR1, SIGPIPE}) {
        EXPECT_EQ(sigismember(&inside, signal), 1);
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal));
    }
}

} // namespace
} // namespace quarnex::test
