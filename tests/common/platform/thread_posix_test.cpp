#include "common/platform/thread.h"

#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(system_thread, a_failed_start_is_reported)
{
    const test::short_of_threads limit;
    system_thread thread;
    EXPECT_FALSE(thread.start([](void*) {}, nullptr));
    EXPECT_FALSE(thread.started());
}

} // namespace
} // namespace quarnex
