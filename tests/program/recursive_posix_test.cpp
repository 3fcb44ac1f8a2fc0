// Directories compressed and restored with -r: links, pipes, permissions, names of any bytes.
#include "program/recursive_fixture.h"
#include "support/limits.h"
#include "support/named_pipe.h"
#include "support/qrx_file.h"

#include <cstdlib>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quarnex::test {
namespace {

// Links and pipes

TEST_P(recursive, a_destination_inside_the_tree_is_recognized_through_a_link)
{
    plant_all({"mydir/x", "mydir/out/"});
    link("mydir/out", "link");
    expect_silent_success(compress({"mydir"}, "link"));
    EXPECT_EQ(listed("mydir/out"), (names{"mydir/", "mydir/x.qrx"}));
}

TEST_P(recursive, the_last_of_two_files_for_one_linked_destination_is_complete)
{
    plant("t/l/x", random_data(20 * mib));
    plant("t/m/x", random_data(1000, 2));
    plant_all({"out/t/m/"});
    link("m", "out/t/l");
    expect_silent_success(compress({"t"}));
    EXPECT_TRUE(holds("out/t/m/x.qrx", get("t/m/x")));
}

TEST_P(recursive, a_source_that_is_the_destination_of_the_next_is_read_before)
{
    plant("t/a", random_data(3000));
    plant("t/b", random_data(1000, 2));
    plant_all({"out/t/"});
    std::filesystem::create_hard_link(dir / "t/a", dir / "out/t/b.qrx");
    const bytes first = get("t/a");
    expect_silent_success(compress({"t"}));
    EXPECT_TRUE(holds("out/t/a.qrx", first));
    EXPECT_TRUE(holds("out/t/b.qrx", get("t/b")));
}

TEST_P(recursive, a_pipe_is_opened_after_earlier_files_are_written)
{
    plant_all({"t/a", "t/b", "out/t/"});
    ASSERT_EQ(mkfifo((dir / "out/t/a.qrx").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((dir / "out/t/b.qrx").c_str(), 0600), 0);
    settings.timeout_seconds = 20;
    const std::string pipes = dir / "out/t/";
    const std::string read_in_turn = "timeout 20 sh -c 'cat " + pipes + "a.qrx >" + pipes +
                                     "first; cat " + pipes + "b.qrx >" + pipes + "second'";
    std::thread reader([&] { EXPECT_EQ(std::system(read_in_turn.c_str()), 0); });
    expect_silent_success(compress({"t"}));
    reader.join();
    EXPECT_TRUE(parse_qrx(get("out/t/first")));
    EXPECT_TRUE(parse_qrx(get("out/t/second")));
}

TEST_P(recursive, two_pipes_can_be_opened_before_either_is_read)
{
    if (std::string(GetParam()) == "-p0")
        GTEST_SKIP() << "without workers, the first is written before the second is opened";
    plant("t/a", random_data(200000)); // more than a pipe holds
    plant("t/b", random_data(200000, 2));
    plant_all({"out/t/"});
    ASSERT_EQ(mkfifo((dir / "out/t/a.qrx").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((dir / "out/t/b.qrx").c_str(), 0600), 0);
    settings.timeout_seconds = 20;
    const std::string pipes = dir / "out/t/";
    const std::string read_both = "timeout 20 sh -c 'exec 3<" + pipes + "a.qrx 4<" + pipes +
                                  "b.qrx; cat <&3 >" + pipes + "first; cat <&4 >" + pipes +
                                  "second'";
    std::thread reader([&] { EXPECT_EQ(std::system(read_both.c_str()), 0); });
    expect_silent_success(compress({"t"}));
    reader.join();
    EXPECT_TRUE(parse_qrx(get("out/t/first")));
    EXPECT_TRUE(parse_qrx(get("out/t/second")));
}

TEST_P(recursive, entries_that_are_neither_file_nor_directory_are_skipped)
{
    plant_all({"mydir/x"});
    ASSERT_EQ(mkfifo((dir / "mydir/pipe").c_str(), 0600), 0);
    link("/dev/null", "mydir/device");
    settings.timeout_seconds = 10; // opening the pipe would block forever
    expect_silent_success(compress({"mydir", "mydir/pipe", "/dev/null"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/x.qrx"}));
}

TEST_P(recursive, links_to_files_are_files_and_links_to_directories_are_skipped)
{
    plant_all({"mydir/a/x", "elsewhere/y"});
    link("a/x", "mydir/file");
    link("../elsewhere", "mydir/outside");
    link("..", "mydir/a/up");
    link("nothing", "mydir/broken");
    expect_silent_success(compress({"mydir"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/a/", "mydir/a/x.qrx", "mydir/file.qrx"}));
    EXPECT_TRUE(holds("out/mydir/file.qrx", get("mydir/a/x")));
}

TEST_P(recursive, a_link_to_a_directory_in_the_list_is_followed)
{
    plant_all({"mydir/a/x"});
    link("mydir", "link");
    expect_silent_success(compress({"link"}));
    EXPECT_EQ(listed("out"), (names{"link/", "link/a/", "link/a/x.qrx"}));
}

// Permissions

/// Parameterized by number of workers, with permissions that also bind the superuser.
class recursive_with_permissions : public recursive {
  protected:
    recursive_with_permissions() { settings.before_exec = obey_permissions; }

    void SetUp() override
    {
        if (run({"-h"}).status == status_not_set_up)
            GTEST_SKIP() << "the superuser's rights can't be given up here";
    }

    void permit(const std::string& name, std::filesystem::perms permissions) const
    {
        std::filesystem::permissions(dir / name, permissions);
    }
};

INSTANTIATE_TEST_SUITE_P(threads, recursive_with_permissions, testing::Values("-p0", "-p2"),
                         thread_option_name);

TEST_P(recursive_with_permissions, an_unreadable_file_is_reported_and_the_walk_continues)
{
    plant_all({"mydir/a", "mydir/b", "mydir/c/x"});
    permit("mydir/b", std::filesystem::perms::none);
    const program_result result = compress({"mydir"});
    EXPECT_EQ(result.err, "can't open input file 'mydir/b'. 'Permission denied'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/a.qrx", "mydir/c/", "mydir/c/x.qrx"}));
}

TEST_P(recursive_with_permissions, an_unreadable_directory_is_created_silently_without_its_content)
{
    plant_all({"mydir/closed/x", "mydir/z", "shut/y"});
    for (const char* name : {"mydir/closed", "shut"}) permit(name, std::filesystem::perms::none);
    expect_silent_success(compress({"mydir", "shut"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/closed/", "mydir/z.qrx", "shut/"}));
    for (const char* name : {"mydir/closed", "shut"})
        permit(name, std::filesystem::perms::owner_all);
}

TEST_P(recursive_with_permissions, entries_that_cannot_be_looked_up_are_skipped_silently)
{
    plant_all({"mydir/listed/x", "mydir/z"});
    permit("mydir/listed", std::filesystem::perms::owner_read);
    expect_silent_success(compress({"mydir"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/listed/", "mydir/z.qrx"}));
    permit("mydir/listed", std::filesystem::perms::owner_all);
}

TEST_P(recursive_with_permissions, a_directory_without_permission_to_create_it_ends_the_run)
{
    plant_all({"mydir/a/", "mydir/b/", "out/mydir/"});
    permit("out/mydir", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    const program_result result = compress({"mydir"});
    EXPECT_EQ(result.err, "cannot create directory 'out/mydir/a'");
    EXPECT_EQ(result.status, 255);
    permit("out/mydir", std::filesystem::perms::owner_all);
}

// Runs that continue

TEST_P(recursive, deleted_directories_are_created_again_with_their_parents)
{
    // The program blocks on the pipe: its workers and queues can't hold all of the first file.
    plant("mydir/a", random_data(24 * mib));
    plant_all({"mydir/b/c/x", "out/mydir/"});
    named_pipe output(dir / "out/mydir/a.qrx", 37,
                      [&] { std::filesystem::remove_all(dir / "out"); });
    expect_silent_success(compress({"mydir"}, dir / "out"));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/b/", "mydir/b/c/", "mydir/b/c/x.qrx"}));
}

// -v

TEST_P(recursive, verbose_prints_the_name_of_each_regular_file_in_the_order_of_bytes)
{
    plant_all({"mydir/b", "mydir/B", "mydir/a.x", "mydir/a/x", "mydir/\xFF", "mydir/%s\n",
               "mydir/packed.qrx", "mydir/empty/", "file"});
    link("b", "mydir/link");
    link("a", "mydir/outside");
    for (const names& verbose : {names{"-v"}, names{"-v", "-v"}}) {
        const program_result result = compress({"mydir", "./file"}, "out", verbose);
        EXPECT_EQ(result.out, "mydir/%s\n\nmydir/B\nmydir/a/x\nmydir/a.x\nmydir/b\nmydir/link\n"
                              "mydir/packed.qrx\nmydir/\xFF\n./file\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
    const program_result result = restore({"out/mydir", "out/file.qrx"}, "back", {"-v"});
    EXPECT_EQ(result.out,
              "out/mydir/%s\n.qrx\nout/mydir/B.qrx\nout/mydir/a/x.qrx\nout/mydir/a.x.qrx\n"
              "out/mydir/b.qrx\nout/mydir/link.qrx\nout/mydir/\xFF.qrx\nout/file.qrx\n");
    EXPECT_EQ(result.status, 0);
}

TEST_P(recursive, verbose_prints_a_name_before_its_file_is_opened)
{
    plant_all({"mydir/a", "out/mydir/a.qrx/"});
    // Both streams go to one pipe; unbuffered messages show the order of the output.
    settings.before_exec = [] { dup2(STDOUT_FILENO, STDERR_FILENO); };
    EXPECT_EQ(compress({"mydir"}, "out", {"-v"}).out,
              "mydir/a\ncreat error 'out/mydir/a.qrx' 'Is a directory'\n");
}

// Whole trees

TEST_P(recursive, odd_names)
{
    for (const std::string name : {" ", "\n", "%s%n", "-r", "--", "...", ".hidden", "a\\b", "*",
                                   "\x01\xFE\xFF", "a.out", "\xC3\xA9", "'\""}) {
        plant_all({"my dir\n/" + name, "my dir\n/in " + name + "/" + name + "/" + name});
    }
    plant_all({"my dir\n/" + std::string(251, 'x')}); // with the suffix, the longest valid name
    expect_silent_success(compress({"my dir\n"}));
    EXPECT_EQ(listed("out").size(), 1 + listed("my dir\n").size());
    expect_silent_success(restore({"out/my dir\n"}));
    EXPECT_EQ(tree("back/my dir\n"), tree("my dir\n"));
}

TEST_P(recursive, a_tree_of_200_files_and_directories_is_rebuilt_in_both_directions)
{
    std::string all_but_slash;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') all_but_slash += static_cast<char>(byte);
    }
    expect_rebuilt(random_tree(all_but_slash));
}

} // namespace
} // namespace quarnex::test
