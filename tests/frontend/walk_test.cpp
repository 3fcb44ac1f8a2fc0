#include "frontend/walk.h"

#include "frontend/walk_fixture.h"
#include "support/captured_output.h"
#include "support/process_entries.h"

namespace quarnex::test {
namespace {

// Entries and their order

TEST_F(recursive_walk, over_no_names_is_at_its_end_and_stays_there)
{
    walker inputs({}, path("out"));
    EXPECT_FALSE(inputs.next());
    EXPECT_FALSE(inputs.next());
    EXPECT_FALSE(dir_walk().next());
}

TEST_F(recursive_walk, returns_the_full_name_and_the_path_below_the_destination)
{
    plant_all({"top/sub/x"});
    const names list{path("top/sub")};
    walker inputs(list, path("out"));
    const auto directory = inputs.next();
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->name, path("top/sub"));
    EXPECT_EQ(directory->relative, "sub");
    EXPECT_EQ(directory->kind, file_kind::directory);
    const auto file = inputs.next();
    ASSERT_TRUE(file);
    EXPECT_EQ(file->name, path("top/sub/x"));
    EXPECT_EQ(file->relative, native("sub/x"));
    EXPECT_EQ(file->kind, file_kind::regular);
    EXPECT_FALSE(inputs.next());
}

TEST_F(recursive_walk, goes_depth_first_with_a_directory_before_its_content)
{
    plant_all({"t/b/c/x", "t/b/z", "t/a/y", "t/d", "t/b/e/"});
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/a/", "t/a/y", "t/b/", "t/b/c/", "t/b/c/x", "t/b/e/",
                                  "t/b/z", "t/d"}));
}

TEST_F(recursive_walk, keeps_the_order_of_the_list)
{
    plant_all({"b/x", "a/y", "file"});
    EXPECT_EQ(walk({"b", "file", "a", "b"}),
              (names{"b/", "b/x", "file", "a/", "a/y", "b/", "b/x"}));
}

TEST_F(recursive_walk, returns_a_plain_file_of_the_list_under_its_last_component)
{
    plant_all({"far/away/file"});
    EXPECT_EQ(walk({"far/away/file"}), names{"file"});
}

TEST_F(recursive_walk, returns_an_empty_directory)
{
    plant_all({"t/empty/"});
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/empty/"}));
}

TEST_F(recursive_walk, does_not_visit_files_created_in_a_directory_that_it_has_entered)
{
    plant_all({"t/b"});
    const names list{path("t")};
    walker inputs(list, path("out"));
    EXPECT_EQ(shown(*inputs.next()), "t/");
    plant_all({"t/a", "t/c", "t/d/x"});
    EXPECT_EQ(shown(*inputs.next()), "t/b");
    EXPECT_FALSE(inputs.next());
}

TEST_F(recursive_walk, skips_files_deleted_before_their_turn)
{
    plant_all({"t/a", "t/b", "t/c"});
    const names list{path("t")};
    walker inputs(list, path("out"));
    EXPECT_EQ(shown(*inputs.next()), "t/");
    EXPECT_EQ(shown(*inputs.next()), "t/a");
    std::filesystem::remove(path("t/b"));
    EXPECT_EQ(shown(*inputs.next()), "t/c");
}

TEST_F(recursive_walk, holds_no_descriptors_between_two_entries)
{
    plant_all({"t/a/b/c/x"});
    const names list{path("t")};
    walker inputs(list, path("out"));
    const usize before = open_descriptors();
    while (inputs.next()) EXPECT_EQ(open_descriptors(), before);
}

// Roots with separators

TEST_F(recursive_walk, a_root_with_a_trailing_separator_has_an_empty_relative_path)
{
    plant_all({"t/a/x", "t/y"});
    EXPECT_EQ(walk({"t/"}), (names{"/", "a/", "a/x", "y"}));
    EXPECT_EQ(walk({"t//"}), (names{"/", "a/", "a/x", "y"}));
}

TEST_F(recursive_walk, does_not_double_the_trailing_separator_of_a_root)
{
    plant_all({"t/x"});
    const names list{path("t/")};
    walker inputs(list, path("out"));
    EXPECT_EQ(inputs.next()->name, path("t/"));
    EXPECT_EQ(inputs.next()->name, path("t/x"));
}

TEST_F(recursive_walk, the_root_dot_keeps_its_name)
{
    plant_all({"t/a/x"});
    EXPECT_EQ(walk({"t/."}), (names{"./", "./a/", "./a/x"}));
}

TEST_F(recursive_walk, a_root_that_ends_in_two_dots_has_an_empty_relative_path)
{
    plant_all({"t/a/x"});
    EXPECT_EQ(walk({"t/a/.."}), (names{"/", "a/", "a/x"}));
    EXPECT_EQ(walk({"t/a/../"}), (names{"/", "a/", "a/x"}));
    EXPECT_EQ(walk({"t/a/../a/.."}), (names{"/", "a/", "a/x"}));
}

// Names that can't be inputs

TEST_F(recursive_walk, a_missing_name_is_reported_in_one_line_and_the_walk_continues)
{
    plant_all({"a/x", "b"});
    captured_output printed;
    EXPECT_EQ(walk({"a", "none%s", "b"}), (names{"a/", "a/x", "b"}));
    EXPECT_EQ(printed.out(), "");
    EXPECT_EQ(printed.err(), path("none%s") + ": No such file or directory\n");
}

TEST_F(recursive_walk, a_first_name_that_just_fits_is_walked)
{
    plant_all({"file"});
    const names list{stretched(path("file"), path_buffer_bytes - 1)};
    walker inputs(list, path("out"));
    const auto entry = inputs.next();
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->name, list.front());
    EXPECT_EQ(entry->relative, "file");
}

TEST_F(recursive_walk, a_first_name_that_is_too_long_ends_the_walk_silently)
{
    plant_all({"file"});
    const names list{stretched(path("file"), path_buffer_bytes), path("file")};
    captured_output printed;
    walker inputs(list, path("out"));
    EXPECT_FALSE(inputs.next());
    EXPECT_EQ(printed.out() + printed.err(), "");
}

// Entries that are skipped silently

TEST_F(recursive_walk, skips_entries_whose_full_names_do_not_fit)
{
    // One file has the longest name that fits, the other is one byte longer.  Files can't be
    // created by such names, so the top directory is renamed to its full length afterwards.
    const std::string grown = path("t_with_a_longer_name");
    const usize missing = grown.size() - path("t").size();
    std::string parent = "t";
    while ((dir / parent).size() + missing + 202 < path_buffer_bytes)
        parent += "/" + std::string(200, 'd');
    const usize fitting = path_buffer_bytes - 1 - missing - (dir / parent).size() - 1;
    plant(dir / parent + "/" + std::string(fitting, 'x'));
    plant(dir / parent + "/" + std::string(fitting + 1, 'x'));
    std::filesystem::rename(path("t"), grown);

    captured_output printed;
    const names list{grown};
    walker inputs(list, path("out"));
    names files;
    while (const auto entry = inputs.next()) {
        if (entry->kind == file_kind::regular) files.push_back(entry->name);
    }
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].size(), path_buffer_bytes - 1);
    EXPECT_EQ(printed.out() + printed.err(), "");
}

TEST_F(recursive_walk, reads_100_nested_directories)
{
    static_assert(dir_walk::max_levels == 100);
    plant_all({nested_directories(100) + "/file"});
    const names found = walk({"d"});
    ASSERT_EQ(found.size(), 101U);
    EXPECT_EQ(found.back(), nested_directories(100) + "/file");
}

TEST_F(recursive_walk, returns_the_101st_nested_directory_without_its_content)
{
    plant_all({nested_directories(101) + "/file", "d/next", nested_directories(100) + "/next"});
    const names found = walk({"d"});
    ASSERT_EQ(found.size(), 103U);
    EXPECT_EQ(found[100], nested_directories(101) + "/");
    EXPECT_EQ(found[101], nested_directories(100) + "/next");
    EXPECT_EQ(found[102], "d/next");
}

TEST_F(recursive_walk, returns_from_the_deepest_level_and_descends_again)
{
    plant_all({nested_directories(101) + "/file", nested_directories(99) + "/e/file"});
    EXPECT_EQ(walk({"d"}).back(), nested_directories(99) + "/e/file");
}

// The destination

TEST_F(recursive_walk, does_not_enter_the_destination)
{
    plant_all({"t/a/out/x", "t/b", "t/a/z"});
    captured_output printed;
    EXPECT_EQ(walk({"t"}, "t/a/out"), (names{"t/", "t/a/", "t/a/z", "t/b"}));
    EXPECT_EQ(printed.err(), "");
}

TEST_F(recursive_walk, enters_other_directories_named_like_the_destination)
{
    plant_all({"t/out/x"});
    EXPECT_EQ(walk({"t"}, "out"), (names{"t/", "t/out/", "t/out/x"}));
}

TEST_F(recursive_walk, a_destination_in_the_list_is_walked_in_place)
{
    plant_all({"out/x", "out/sub/y", "a"});
    EXPECT_EQ(walk({"out", "a", "out/."}),
              (names{"sub/", "sub/y", "x", "a", "sub/", "sub/y", "x"}));
}

TEST_F(recursive_walk, marks_the_entries_that_are_in_place)
{
    plant_all({"out/sub/y", "a/b"});
    for (const std::string& root : {path("out"), path("a")}) {
        const std::vector<std::string> list{root};
        walker inputs(list, path("out"));
        while (const auto entry = inputs.next()) EXPECT_EQ(entry->in_place, root == path("out"));
    }
}

TEST_F(recursive_walk, walks_a_directory_inside_the_destination)
{
    plant_all({"out/t/x"});
    EXPECT_EQ(walk({"out/t"}), (names{"t/", "t/x"}));
}

TEST_F(recursive_walk, needs_no_destination)
{
    plant_all({"t/x"});
    EXPECT_EQ(walk({"t"}, "missing"), (names{"t/", "t/x"}));
}

} // namespace
} // namespace quarnex::test
