#include "frontend/walk.h"

#include "support/captured_output.h"
#include "support/file_tree.h"
#include "support/process_entries.h"

#include <algorithm>
#include <sys/stat.h>

namespace quarnex::test {
namespace {

using names = std::vector<std::string>;

/// The relative part of an entry, with "/" behind a directory and "?" behind what is no file
/// either.
std::string shown(const walk_entry& entry)
{
    switch (entry.kind) {
    case file_kind::regular:
        return entry.relative;
    case file_kind::directory:
        return entry.relative + "/";
    case file_kind::other:
        break;
    }
    return entry.relative + "?";
}

class recursive_walk : public testing::Test {
  protected:
    recursive_walk() { std::filesystem::create_directory(dir / "out"); }

    void plant_all(const names& planted) const
    {
        for (const std::string& name : planted) plant(dir / name);
    }
    void link(const std::string& to, const std::string& name) const
    {
        std::filesystem::create_symlink(to, dir / name);
    }

    /// What a walk over names in the directory gives.
    names walk(names list, const std::string& destination = "out") const
    {
        for (std::string& name : list) name = dir / name;
        walker inputs(list, dir / destination);
        names found;
        while (const auto entry = inputs.next()) found.push_back(shown(*entry));
        return found;
    }

    temp_dir dir;
};

// What comes, and in which order

TEST_F(recursive_walk, over_no_names_is_at_its_end_and_stays_there)
{
    walker inputs({}, dir / "out");
    EXPECT_FALSE(inputs.next());
    EXPECT_FALSE(inputs.next());
    EXPECT_FALSE(dir_walk().next());
}

TEST_F(recursive_walk, gives_the_full_name_and_the_part_for_the_destination)
{
    plant_all({"top/sub/x"});
    const names list{dir / "top/sub"};
    walker inputs(list, dir / "out");
    const auto directory = inputs.next();
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->name, dir / "top/sub");
    EXPECT_EQ(directory->relative, "sub");
    EXPECT_EQ(directory->kind, file_kind::directory);
    const auto file = inputs.next();
    ASSERT_TRUE(file);
    EXPECT_EQ(file->name, dir / "top/sub/x");
    EXPECT_EQ(file->relative, "sub/x");
    EXPECT_EQ(file->kind, file_kind::regular);
    EXPECT_FALSE(inputs.next());
}

TEST_F(recursive_walk, goes_depth_first_with_a_directory_before_its_content)
{
    plant_all({"t/b/c/x", "t/b/z", "t/a/y", "t/d", "t/b/e/"});
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/a/", "t/a/y", "t/b/", "t/b/c/", "t/b/c/x", "t/b/e/",
                                  "t/b/z", "t/d"}));
}

TEST_F(recursive_walk, follows_the_order_of_bytes_in_each_directory)
{
    plant_all({"t/b", "t/B", "t/a.x", "t/a/x", "t/\xC3\xA9", "t/\xFF", "t/ ", "t/10", "t/9"});
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/ ", "t/10", "t/9", "t/B", "t/a/", "t/a/x", "t/a.x",
                                  "t/b", "t/\xC3\xA9", "t/\xFF"}));
}

TEST_F(recursive_walk, takes_the_names_of_the_list_as_they_come)
{
    plant_all({"b/x", "a/y", "file"});
    EXPECT_EQ(walk({"b", "file", "a", "b"}),
              (names{"b/", "b/x", "file", "a/", "a/y", "b/", "b/x"}));
}

TEST_F(recursive_walk, gives_a_plain_file_of_the_list_under_its_last_part)
{
    plant_all({"far/away/file"});
    EXPECT_EQ(walk({"far/away/file"}), names{"file"});
}

TEST_F(recursive_walk, gives_an_empty_directory)
{
    plant_all({"t/empty/"});
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/empty/"}));
}

TEST_F(recursive_walk, gives_names_of_any_bytes)
{
    const names odd{"\n", " ", "%s", "-r", "...", ".hidden", "a\\b", "\x01\xFE\xFF"};
    names expected{"t/"};
    for (const std::string& name : odd) {
        plant(dir / ("t/" + name));
        expected.push_back("t/" + name);
    }
    names found = walk({"t"});
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
}

TEST_F(recursive_walk, tells_pipes_and_devices_apart_from_files)
{
    plant_all({"t/file"});
    ASSERT_EQ(mkfifo((dir / "t/pipe").c_str(), 0600), 0);
    link("/dev/null", "t/device");
    EXPECT_EQ(walk({"t", "t/pipe"}), (names{"t/", "t/device?", "t/file", "t/pipe?", "pipe?"}));
}

TEST_F(recursive_walk, does_not_meet_what_is_made_in_a_directory_that_it_has_come_to)
{
    plant_all({"t/b"});
    const names list{dir / "t"};
    walker inputs(list, dir / "out");
    EXPECT_EQ(shown(*inputs.next()), "t/");
    plant_all({"t/a", "t/c", "t/d/x"});
    EXPECT_EQ(shown(*inputs.next()), "t/b");
    EXPECT_FALSE(inputs.next());
}

TEST_F(recursive_walk, leaves_out_what_vanishes_before_its_turn)
{
    plant_all({"t/a", "t/b", "t/c"});
    const names list{dir / "t"};
    walker inputs(list, dir / "out");
    EXPECT_EQ(shown(*inputs.next()), "t/");
    EXPECT_EQ(shown(*inputs.next()), "t/a");
    std::filesystem::remove(dir / "t/b");
    EXPECT_EQ(shown(*inputs.next()), "t/c");
}

TEST_F(recursive_walk, holds_no_descriptors_between_two_entries)
{
    plant_all({"t/a/b/c/x"});
    const names list{dir / "t"};
    walker inputs(list, dir / "out");
    const usize before = open_descriptors();
    while (inputs.next()) EXPECT_EQ(open_descriptors(), before);
}

// Roots with separators

TEST_F(recursive_walk, a_root_with_a_trailing_separator_has_no_part_of_its_own)
{
    plant_all({"t/a/x", "t/y"});
    EXPECT_EQ(walk({"t/"}), (names{"/", "a/", "a/x", "y"}));
    EXPECT_EQ(walk({"t//"}), (names{"/", "a/", "a/x", "y"}));
}

TEST_F(recursive_walk, puts_one_separator_behind_a_root_that_has_one)
{
    plant_all({"t/x"});
    const names list{dir / "t/"};
    walker inputs(list, dir / "out");
    EXPECT_EQ(inputs.next()->name, dir / "t/");
    EXPECT_EQ(inputs.next()->name, dir / "t/x");
}

TEST_F(recursive_walk, a_root_that_is_a_dot_keeps_it)
{
    plant_all({"t/a/x"});
    EXPECT_EQ(walk({"t/."}), (names{"./", "./a/", "./a/x"}));
}

TEST_F(recursive_walk, a_root_that_ends_in_two_dots_has_no_part_of_its_own)
{
    plant_all({"t/a/x"});
    EXPECT_EQ(walk({"t/a/.."}), (names{"/", "a/", "a/x"}));
    EXPECT_EQ(walk({"t/a/../"}), (names{"/", "a/", "a/x"}));
    EXPECT_EQ(walk({"t/a/../a/.."}), (names{"/", "a/", "a/x"}));
}

TEST_F(recursive_walk, a_root_that_only_looks_like_two_dots_keeps_its_part)
{
    plant_all({"..x/y", "t/.../y", "t/x../y"});
    EXPECT_EQ(walk({"..x"}), (names{"..x/", "..x/y"}));
    EXPECT_EQ(walk({"t/..."}), (names{".../", ".../y"}));
    EXPECT_EQ(walk({"t/x.."}), (names{"x../", "x../y"}));
}

TEST_F(recursive_walk, the_root_of_all_has_entries_with_one_separator)
{
    const names list{"/"};
    walker inputs(list, dir / "out");
    const auto root = inputs.next();
    ASSERT_TRUE(root);
    EXPECT_EQ(root->name, "/");
    EXPECT_EQ(root->relative, "");
    const auto first = inputs.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->name, "/" + first->relative);
    EXPECT_NE(first->relative.front(), '/');
}

// Names that can't be inputs

TEST_F(recursive_walk, a_name_that_does_not_exist_is_told_in_a_line_and_the_next_follows)
{
    plant_all({"a/x", "b"});
    captured_output printed;
    EXPECT_EQ(walk({"a", "none%s", "b", "b/below"}), (names{"a/", "a/x", "b"}));
    EXPECT_EQ(printed.out(), "");
    EXPECT_EQ(printed.err(), dir / "none%s" + ": No such file or directory\n" + dir / "b/below" +
                                 ": Not a directory\n");
}

TEST_F(recursive_walk, a_first_name_that_just_fits_is_walked)
{
    plant_all({"file"});
    const names list{stretched(dir / "file", path_buffer_bytes - 1)};
    walker inputs(list, dir / "out");
    const auto entry = inputs.next();
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->name, list.front());
    EXPECT_EQ(entry->relative, "file");
}

TEST_F(recursive_walk, a_first_name_that_is_too_long_ends_it_without_a_word)
{
    plant_all({"file"});
    const names list{stretched(dir / "file", path_buffer_bytes), dir / "file"};
    captured_output printed;
    walker inputs(list, dir / "out");
    EXPECT_FALSE(inputs.next());
    EXPECT_EQ(printed.out() + printed.err(), "");
}

TEST_F(recursive_walk, a_later_name_that_is_too_long_is_told_in_a_line)
{
    plant_all({"file"});
    const std::string too_long = stretched(dir / "file", path_buffer_bytes);
    const names list{dir / "file", too_long, dir / "file"};
    captured_output printed;
    walker inputs(list, dir / "out");
    EXPECT_TRUE(inputs.next());
    EXPECT_TRUE(inputs.next());
    EXPECT_FALSE(inputs.next());
    EXPECT_EQ(printed.err(), too_long + ": File name too long\n");
}

// Entries that are left out without a word

TEST_F(recursive_walk, leaves_out_entries_whose_full_names_do_not_fit)
{
    // Files with the longest name that fits and with one byte more.  They can't be made by these
    // names, so the directory at the top gets its full name at last.
    const std::string grown = dir / "t_with_a_longer_name";
    const usize missing = grown.size() - (dir / "t").size();
    std::string parent = "t";
    while ((dir / parent).size() + missing + 202 < path_buffer_bytes)
        parent += "/" + std::string(200, 'd');
    const usize fitting = path_buffer_bytes - 1 - missing - (dir / parent).size() - 1;
    plant(dir / parent + "/" + std::string(fitting, 'x'));
    plant(dir / parent + "/" + std::string(fitting + 1, 'x'));
    std::filesystem::rename(dir / "t", grown);

    captured_output printed;
    const names list{grown};
    walker inputs(list, dir / "out");
    names files;
    while (const auto entry = inputs.next()) {
        if (entry->kind == file_kind::regular) files.push_back(entry->name);
    }
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].size(), path_buffer_bytes - 1);
    EXPECT_EQ(printed.out() + printed.err(), "");
}

TEST_F(recursive_walk, reads_100_directories_in_one_another)
{
    static_assert(dir_walk::most_levels == 100);
    plant_all({nested_directories(100) + "/file"});
    const names found = walk({"d"});
    ASSERT_EQ(found.size(), 101U);
    EXPECT_EQ(found.back(), nested_directories(100) + "/file");
}

TEST_F(recursive_walk, gives_the_directory_in_100_others_but_not_its_content)
{
    plant_all({nested_directories(101) + "/file", "d/next", nested_directories(100) + "/next"});
    const names found = walk({"d"});
    ASSERT_EQ(found.size(), 103U);
    EXPECT_EQ(found[100], nested_directories(101) + "/");
    EXPECT_EQ(found[101], nested_directories(100) + "/next");
    EXPECT_EQ(found[102], "d/next");
}

TEST_F(recursive_walk, comes_up_from_the_last_level_and_goes_down_again)
{
    plant_all({nested_directories(101) + "/file", nested_directories(99) + "/e/file"});
    EXPECT_EQ(walk({"d"}).back(), nested_directories(99) + "/e/file");
}

// Links

TEST_F(recursive_walk, a_link_to_a_file_is_a_file)
{
    plant_all({"t/file", "elsewhere"});
    link("file", "t/link");
    link("../elsewhere", "t/outside");
    EXPECT_EQ(walk({"t", "t/link"}), (names{"t/", "t/file", "t/link", "t/outside", "link"}));
}

TEST_F(recursive_walk, a_link_to_a_directory_is_left_out)
{
    plant_all({"t/a/x", "elsewhere/y"});
    link("a", "t/link");
    link("../elsewhere", "t/outside");
    captured_output printed;
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/a/", "t/a/x"}));
    EXPECT_EQ(printed.err(), "");
}

TEST_F(recursive_walk, a_link_to_a_directory_that_is_named_is_followed)
{
    plant_all({"t/a/x"});
    link("t", "link");
    EXPECT_EQ(walk({"link"}), (names{"link/", "link/a/", "link/a/x"}));
}

TEST_F(recursive_walk, links_that_lead_around_in_circles_are_left_out)
{
    plant_all({"t/a/x"});
    for (const char* to : {"..", ".", "link"}) {
        link(to, "t/a/link");
        EXPECT_EQ(walk({"t"}), (names{"t/", "t/a/", "t/a/x"})) << to;
        std::filesystem::remove(dir / "t/a/link");
    }
}

TEST_F(recursive_walk, a_link_to_nothing_is_left_out)
{
    plant_all({"t/x"});
    link("nothing", "t/broken");
    captured_output printed;
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/x"}));
    EXPECT_EQ(printed.err(), "");
}

TEST_F(recursive_walk, a_link_to_nothing_that_is_named_is_told)
{
    link("nothing", "broken");
    link("itself", "itself");
    captured_output printed;
    EXPECT_EQ(walk({"broken", "itself"}), names{});
    EXPECT_EQ(printed.err(), dir / "broken" + ": No such file or directory\n" + dir / "itself" +
                                 ": Too many levels of symbolic links\n");
}

// The destination

TEST_F(recursive_walk, does_not_enter_the_destination)
{
    plant_all({"t/a/out/x", "t/b", "t/a/z"});
    captured_output printed;
    EXPECT_EQ(walk({"t"}, "t/a/out"), (names{"t/", "t/a/", "t/a/z", "t/b"}));
    EXPECT_EQ(printed.err(), "");
}

TEST_F(recursive_walk, enters_other_directories_with_the_name_of_the_destination)
{
    plant_all({"t/out/x"});
    EXPECT_EQ(walk({"t"}, "out"), (names{"t/", "t/out/", "t/out/x"}));
}

TEST_F(recursive_walk, knows_the_destination_by_any_name)
{
    plant_all({"t/out/x", "t/y"});
    link("t/out", "link");
    EXPECT_EQ(walk({"t"}, "link"), (names{"t/", "t/y"}));
    EXPECT_EQ(walk({"t"}, "t/../t/out/."), (names{"t/", "t/y"}));
}

TEST_F(recursive_walk, a_destination_that_is_named_is_told_and_the_next_name_follows)
{
    plant_all({"out/x", "a"});
    link("out", "link");
    captured_output printed;
    EXPECT_EQ(walk({"out", "a", "link"}), names{"a"});
    EXPECT_EQ(printed.err(), dir / "out" + ": skipped, it is the destination\n" + dir / "link" +
                                 ": skipped, it is the destination\n");
}

TEST_F(recursive_walk, walks_a_directory_that_lies_in_the_destination)
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
