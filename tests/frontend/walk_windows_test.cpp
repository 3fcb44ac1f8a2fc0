// Walks on Windows: drives, case-insensitive names, short paths.
#include "frontend/walk_fixture.h"
#include "support/captured_output.h"

namespace quarnex::test {
namespace {

TEST_F(recursive_walk, follows_the_order_of_bytes_among_names_that_can_coexist)
{
    plant_all({"t/b", "t/C", "t/a.x", "t/a/x", "t/_", "t/10", "t/9", "t/-r"});
    EXPECT_EQ(walk({"t"}),
              (names{"t/", "t/-r", "t/10", "t/9", "t/C", "t/_", "t/a/", "t/a/x", "t/a.x", "t/b"}));
}

TEST_F(recursive_walk, returns_a_name_of_the_list_as_it_is_spelled)
{
    plant_all({"top/file"});
    EXPECT_EQ(walk({"TOP", "top/FILE"}), (names{"TOP/", "TOP/file", "FILE"}));
}

TEST_F(recursive_walk, the_relative_path_starts_after_the_last_slash_of_the_root)
{
    plant_all({"top/sub/x"});
    const names list{path("top") + "/sub"};
    walker inputs(list, path("out"));
    EXPECT_EQ(inputs.next()->relative, "sub");
    EXPECT_EQ(inputs.next()->relative, "sub\\x");
}

TEST_F(recursive_walk, a_root_that_begins_with_two_dots_keeps_its_name)
{
    plant_all({"..x/y"});
    EXPECT_EQ(walk({"..x"}), (names{"..x/", "..x/y"}));
}

TEST_F(recursive_walk, entries_of_the_root_of_a_drive_have_one_separator)
{
    const names list{path("").substr(0, 3)};
    ASSERT_EQ(list[0].substr(1), ":\\");
    walker inputs(list, path("out"));
    const auto root = inputs.next();
    ASSERT_TRUE(root);
    EXPECT_EQ(root->name, list[0]);
    EXPECT_EQ(root->relative, "");
    EXPECT_EQ(root->kind, file_kind::directory);
    const auto first = inputs.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->name, list[0] + first->relative);
    EXPECT_NE(first->relative.front(), '\\');
}

TEST_F(recursive_walk, recognizes_the_destination_in_either_case)
{
    plant_all({"t/Out/x", "t/y"});
    EXPECT_EQ(walk({"t"}, "T/OUT"), (names{"t/", "t/y"}));
}

TEST_F(recursive_walk, a_name_below_a_file_is_reported_in_one_line)
{
    plant_all({"a", "b"});
    captured_output printed;
    EXPECT_EQ(walk({"a/below", "b"}), names{"b"});
    EXPECT_EQ(printed.err(), path("a/below") + ": No such file or directory\n");
}

TEST_F(recursive_walk, a_later_name_that_is_too_long_does_not_exist)
{
    plant_all({"file"});
    const std::string too_long = path(std::string(path_buffer_bytes, 'x'));
    const names list{path("file"), too_long, path("file")};
    captured_output printed;
    walker inputs(list, path("out"));
    EXPECT_TRUE(inputs.next());
    EXPECT_TRUE(inputs.next());
    EXPECT_FALSE(inputs.next());
    EXPECT_EQ(printed.err(), too_long + ": No such file or directory\n");
}

} // namespace
} // namespace quarnex::test
