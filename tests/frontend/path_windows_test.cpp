#include "frontend/path.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(path, a_part_starts_behind_a_slash_and_behind_a_drive_too)
{
    EXPECT_EQ(last_component("a/b"), 2U);
    EXPECT_EQ(last_component("a\\b/c"), 4U);
    EXPECT_EQ(last_component("a/b\\c"), 4U);
    EXPECT_EQ(last_component("C:a"), 2U);
    EXPECT_EQ(last_component("C:"), 2U);
}

} // namespace
} // namespace quarnex
