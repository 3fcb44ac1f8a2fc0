#include "frontend/path.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(path, a_component_starts_after_a_slash_or_a_drive_too)
{
    EXPECT_EQ(last_component("a/b"), 2U);
    EXPECT_EQ(last_component("a\\b/c"), 4U);
    EXPECT_EQ(last_component("a/b\\c"), 4U);
    EXPECT_EQ(last_component("C:a"), 2U);
    EXPECT_EQ(last_component("C:"), 2U);
}

} // namespace
} // namespace quarnex
