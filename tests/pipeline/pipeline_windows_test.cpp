#include "pipeline/pipeline.h"

#include "support/temp_dir.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {
namespace {

TEST(pipeline_destinations, a_name_in_other_letters_waits_like_the_name_itself)
{
    const time_guard guard;
    const temp_dir dir;
    pipeline_state state(2);
    const auto earlier = state.create_destination(dir / "out");
    state.enqueue({});
    const auto again = in_thread([&] { state.create_destination(dir / "OUT"); });
    EXPECT_TRUE(still_waits(again));
    state.settle(*earlier, 0, direction::compress);
    EXPECT_TRUE(comes_to_its_end(again));
}

} // namespace
} // namespace quarnex::test
