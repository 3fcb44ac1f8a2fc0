// Walks over links, pipes and names of arbitrary bytes.
#include "frontend/walk_fixture.h"
#include "support/captured_output.h"

#include <algorithm>
#include <sys/stat.h>

namespace quarnex::test {
namespace {

TEST_F(recursive_walk, follows_the_order_of_bytes_in_each_directory)
{
    plant_all({"t/b", "t/B", "t/a.x", "t/a/x", "t/\xC3\xA9", "t/\xFF", "t/ ", "t/10", "t/9"});
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/ ", "t/10", "t/9", "t/B", "t/a/", "t/a/x", "t/a.x",
                                  "t/b", "t/\xC3\xA9", "t/\xFF"}));
}

TEST_F(recursive_walk, returns_names_of_arbitrary_bytes)
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

TEST_F(recursive_walk, distinguishes_pipes_and_devices_from_files)
{
    plant_all({"t/file"});
    ASSERT_EQ(mkfifo((dir / "t/pipe").c_str(), 0600), 0);
    link("/dev/null", "t/device");
    EXPECT_EQ(walk({"t", "t/pipe"}), (names{"t/", "t/device?", "t/file", "t/pipe?", "pipe?"}));
}

TEST_F(recursive_walk, a_root_that_only_resembles_two_dots_keeps_its_name)
{
    plant_all({"..x/y", "t/.../y", "t/x../y"});
    EXPECT_EQ(walk({"..x"}), (names{"..x/", "..x/y"}));
    EXPECT_EQ(walk({"t/..."}), (names{".../", ".../y"}));
    EXPECT_EQ(walk({"t/x.."}), (names{"x../", "x../y"}));
}

TEST_F(recursive_walk, entries_of_the_root_directory_have_one_separator)
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

TEST_F(recursive_walk, a_name_below_a_file_is_reported_in_one_line)
{
    plant_all({"a", "b"});
    captured_output printed;
    EXPECT_EQ(walk({"a/below", "b"}), names{"b"});
    EXPECT_EQ(printed.err(), path("a/below") + ": Not a directory\n");
}

TEST_F(recursive_walk, a_later_name_that_is_too_long_is_reported_in_one_line)
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

// Links

TEST_F(recursive_walk, a_link_to_a_file_is_a_file)
{
    plant_all({"t/file", "elsewhere"});
    link("file", "t/link");
    link("../elsewhere", "t/outside");
    EXPECT_EQ(walk({"t", "t/link"}), (names{"t/", "t/file", "t/link", "t/outside", "link"}));
}

TEST_F(recursive_walk, a_link_to_a_directory_is_skipped)
{
    plant_all({"t/a/x", "elsewhere/y"});
    link("a", "t/link");
    link("../elsewhere", "t/outside");
    captured_output printed;
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/a/", "t/a/x"}));
    EXPECT_EQ(printed.err(), "");
}

TEST_F(recursive_walk, a_link_to_a_directory_in_the_list_is_followed)
{
    plant_all({"t/a/x"});
    link("t", "link");
    EXPECT_EQ(walk({"link"}), (names{"link/", "link/a/", "link/a/x"}));
}

TEST_F(recursive_walk, links_that_form_a_cycle_are_skipped)
{
    plant_all({"t/a/x"});
    for (const char* to : {"..", ".", "link"}) {
        link(to, "t/a/link");
        EXPECT_EQ(walk({"t"}), (names{"t/", "t/a/", "t/a/x"})) << to;
        std::filesystem::remove(dir / "t/a/link");
    }
}

TEST_F(recursive_walk, a_dangling_link_is_skipped)
{
    plant_all({"t/x"});
    link("nothing", "t/broken");
    captured_output printed;
    EXPECT_EQ(walk({"t"}), (names{"t/", "t/x"}));
    EXPECT_EQ(printed.err(), "");
}

TEST_F(recursive_walk, a_dangling_link_in_the_list_is_reported)
{
    link("nothing", "broken");
    link("itself", "itself");
    captured_output printed;
    EXPECT_EQ(walk({"broken", "itself"}), names{});
    EXPECT_EQ(printed.err(), dir / "broken" + ": No such file or directory\n" + dir / "itself" +
                                 ": Too many levels of symbolic links\n");
}

// The destination

TEST_F(recursive_walk, recognizes_the_destination_by_any_name)
{
    plant_all({"t/out/x", "t/y"});
    link("t/out", "link");
    EXPECT_EQ(walk({"t"}, "link"), (names{"t/", "t/y"}));
    EXPECT_EQ(walk({"t"}, "t/../t/out/."), (names{"t/", "t/y"}));
}

TEST_F(recursive_walk, a_destination_named_by_a_link_is_walked_in_place)
{
    plant_all({"out/x", "a"});
    link("out", "link");
    EXPECT_EQ(walk({"link", "a"}), (names{"x", "a"}));
}

} // namespace
} // namespace quarnex::test
