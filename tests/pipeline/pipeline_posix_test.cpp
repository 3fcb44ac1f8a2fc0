#include "pipeline/pipeline.h"

#include "support/captured_output.h"
#include "support/scoped_limits.h"
#include "support/waiting.h"

namespace quarnex::test {
namespace {

TEST(pipeline_start, each_thread_that_does_not_start_is_told)
{
    const time_guard guard;
    captured_output printed;
    pipeline_state state(2);
    const short_of_threads limit;
    EXPECT_FALSE(pipeline_threads(state, direction::compress).ready());
    EXPECT_EQ(printed.out(), "Error thread_create.\nError thread_create.\nError thread_create.\n");
}

} // namespace
} // namespace quarnex::test
