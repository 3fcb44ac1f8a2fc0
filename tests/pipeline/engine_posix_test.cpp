#include "pipeline/engine.h"

#include "support/event_recorder.h"
#include "support/scoped_limits.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {
namespace {

TEST(engine_start, each_thread_that_fails_to_start_is_reported)
{
    const time_guard guard;
    event_recorder recorder;
    engine work(system_allocator, 2, recorder.watcher());
    const short_of_threads limit;
    EXPECT_FALSE(engine_threads(work).ready());
    const auto reported = recorder.take();
    ASSERT_EQ(reported.size(), 3U);
    for (const recorded_event& each : reported) EXPECT_EQ(each.kind, event_kind::thread_unstarted);
    EXPECT_EQ(work.first_failure(), status::no_thread);
}

} // namespace
} // namespace quarnex::test
