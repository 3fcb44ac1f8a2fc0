#include "match/concepts.h"

#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

struct limited_recorder : test::token_recorder<1> {
    static constexpr u32 max_dist = 1000;
};
static_assert(token_writer<limited_recorder>);

TEST(longest_dist, is_that_of_the_writer_or_any)
{
    EXPECT_EQ(longest_dist<limited_recorder>, 1000U);
    EXPECT_EQ(longest_dist<test::token_recorder<1>>, 0xFFFFFFFF);
}

} // namespace
} // namespace quarnex
