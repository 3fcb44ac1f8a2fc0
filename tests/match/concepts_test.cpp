#include "match/concepts.h"

#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

struct limited_recorder : test::token_recorder<1> {
    static constexpr u32 max_dist = 1000;
};
static_assert(token_writer<limited_recorder>);

TEST(max_dist_of, is_that_of_the_writer_or_unlimited)
{
    EXPECT_EQ(max_dist_of<limited_recorder>, 1000U);
    EXPECT_EQ(max_dist_of<test::token_recorder<1>>, 0xFFFFFFFF);
}

} // namespace
} // namespace quarnex
