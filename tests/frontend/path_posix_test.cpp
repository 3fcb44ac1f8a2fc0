#include "frontend/path.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(path, separators_of_other_systems_are_part_of_a_name)
{
    EXPECT_EQ(last_component("a\\b"), 0U);
    EXPECT_EQ(last_component("C:a"), 0U);
}

} // namespace
} // namespace quarnex
