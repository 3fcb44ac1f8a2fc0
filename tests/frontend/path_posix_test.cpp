#include "frontend/path.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(path, what_separates_on_other_systems_belongs_to_a_name)
{
    EXPECT_EQ(last_component("a\\b"), 0U);
    EXPECT_EQ(last_component("C:a"), 0U);
}

} // namespace
} // namespace quarnex
