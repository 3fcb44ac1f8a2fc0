#include "frontend/path.h"

#include "support/paths.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::native;

TEST(path, the_last_component_starts_after_the_last_separator)
{
    EXPECT_EQ(last_component(native("a/b")), 2U);
    EXPECT_EQ(last_component(native("a/b/cde")), 4U);
    EXPECT_EQ(last_component(native("/a")), 1U);
    EXPECT_EQ(last_component(native("a//b")), 3U);
}

TEST(path, without_a_separator_is_its_own_last_component)
{
    EXPECT_EQ(last_component("a"), 0U);
    EXPECT_EQ(last_component("a b.c"), 0U);
    EXPECT_EQ(last_component(""), 0U);
}

TEST(path, with_a_trailing_separator_has_an_empty_last_component)
{
    EXPECT_EQ(last_component(native("a/")), 2U);
    EXPECT_EQ(last_component(native("/")), 1U);
}

TEST(path, joined_paths_have_one_separator_in_between)
{
    EXPECT_EQ(join_paths("out", "x"), native("out/x"));
    EXPECT_EQ(join_paths("out", native("a/x")), native("out/a/x"));
    EXPECT_EQ(join_paths(".", "x"), native("./x"));
    EXPECT_EQ(join_paths("out", ""), native("out/"));
}

TEST(path, a_trailing_separator_is_not_doubled_by_joining)
{
    EXPECT_EQ(join_paths(native("out/"), "x"), native("out/x"));
    EXPECT_EQ(join_paths(native("/"), "x"), native("/x"));
    EXPECT_EQ(join_paths(native("out//"), "x"), native("out//x"));
}

} // namespace
} // namespace quarnex
