// Windows specifics: wildcards, backslashes, drives, limits and exit statuses.
#include "program/recursive_fixture.h"
#include "support/exclusive_file.h"
#include "support/paths.h"

#include <filesystem>

namespace quarnex::test {
namespace {

/// Passes arguments and output unchanged, without replacing backslashes by slashes.
class on_windows : public program_fixture {
  protected:
    on_windows() { settings.translates_paths = false; }

    /// Creates files, each with its own name as content, and directories.
    void plant_all(const names& planted) const
    {
        for (const std::string& name : planted) plant(dir / name, bytes_of(name));
    }
    names listed(const std::string& directory) const { return names_below(dir / directory); }
};

// Wildcards

TEST_F(on_windows, wildcards_expand_to_the_matching_names)
{
    plant_all({"a1.txt", "a2.txt", "a3.bin", "b1.txt", "deep/a4.txt"});
    expect_silent_success(run({"-10", "a*.txt", "stars"}));
    EXPECT_EQ(listed("stars"), (names{"a1.txt.qrx", "a2.txt.qrx"}));
    expect_silent_success(run({"-10", "?1.txt", "marks"}));
    EXPECT_EQ(listed("marks"), (names{"a1.txt.qrx", "b1.txt.qrx"}));
    expect_silent_success(run({"-d", "stars\\*", "back"}));
    EXPECT_EQ(listed("back"), (names{"a1.txt", "a2.txt"}));
    EXPECT_EQ(get("back/a2.txt"), bytes_of("a2.txt"));
}

TEST_F(on_windows, a_wildcard_without_matches_is_passed_unchanged)
{
    plant_all({"file"});
    const program_result result = run({"-10", "file", "*.none", "out"});
    EXPECT_EQ(result.err, "can't open input file '*.none'. 'Invalid argument'\n");
    EXPECT_EQ(listed("out"), names{"file.qrx"});
}

TEST_F(on_windows, wildcards_below_a_directory_rebuild_its_content)
{
    plant_all({"mydir/a/x", "mydir/y", "mydir/empty/"});
    expect_silent_success(run({"-10", "-r", "mydir\\*", "out"}));
    EXPECT_EQ(listed("out"), (names{"a/", "a/x.qrx", "empty/", "y.qrx"}));
    expect_silent_success(run({"-d", "-r", "out\\*", "back"}));
    EXPECT_EQ(tree_below(dir / "back"), tree_below(dir / "mydir"));
}

// Paths

TEST_F(on_windows, messages_have_backslashes)
{
    plant_all({"mydir/sub/x", "out/sub/x.qrx/"});
    EXPECT_EQ(run({"-10", "-r", "-v", "mydir\\sub", "out"}).out, "mydir\\sub\\x\n");
    EXPECT_EQ(run({"-10", "mydir\\sub\\x", "out\\sub\\"}).err,
              "creat error 'out\\sub\\x.qrx' 'Permission denied'\n");
}

TEST_F(on_windows, usage_shows_backslashes_and_the_tools_name_without_its_path)
{
    settings.argv0 = "C:\\tools\\packer.exe";
    const std::string text = run({"-h"}).err;
    EXPECT_EQ(text.substr(0, 17), "\npacker.exe 0.94 ");
    for (const char* line : {" Usage: packer.exe <options>", "quarnex -59 -r mydir\\* backup_dir\n",
                             "quarnex -d -r backup_dir\\* restore_dir\n"})
        EXPECT_NE(text.find(line), std::string::npos) << text;
}

TEST_F(on_windows, slashes_and_drives_in_a_name_cannot_escape_the_destination)
{
    plant_all({"mydir/x", "x.qrx", "work/"});
    settings.work_dir = dir / "work";
    const std::string drive = dir.path().substr(0, 2);
    plant_all({"work/z"});
    expect_silent_success(run({"-10", "../mydir/x", "..\\mydir/x", drive + "z", "out"}));
    EXPECT_EQ(listed("work/out"), (names{"x.qrx", "z.qrx"}));
    expect_silent_success(run({"-10", "-r", "../mydir", "out"}));
    EXPECT_EQ(listed("work/out"), (names{"mydir/", "mydir/x.qrx", "x.qrx", "z.qrx"}));
    expect_silent_success(run({"-d", "out/x.qrx", "back"}));
    EXPECT_EQ(listed("work/back"), names{"x"});
    EXPECT_EQ(get("x.qrx"), bytes_of("x.qrx"));
    EXPECT_FALSE(exists("work/mydir"));
}

TEST_F(on_windows, a_destination_relative_to_the_root_of_a_drive)
{
    plant_all({"mydir/a/x"});
    const std::string full = native(dir / "full");
    expect_silent_success(run({"-10", "-r", "mydir", full}));
    EXPECT_EQ(listed("full"), (names{"mydir/", "mydir/a/", "mydir/a/x.qrx"}));
    const std::string below_drive = native(dir / "below").substr(2);
    expect_silent_success(run({"-10", "-r", "mydir", below_drive}));
    EXPECT_EQ(listed("below"), listed("full"));
}

TEST_F(on_windows, a_destination_relative_to_the_working_directory_of_a_drive)
{
    plant_all({"mydir/a/x"});
    const std::string drive = dir.path().substr(0, 2);
    expect_silent_success(run({"-10", "-r", "mydir", drive + "out"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/a/", "mydir/a/x.qrx"}));
}

TEST_F(on_windows, a_suffix_and_a_destination_in_either_case)
{
    plant_all({"file", "packed.QrX", "Out/"});
    expect_silent_success(run({"-10", "-r", ".", "OUT"}));
    EXPECT_EQ(listed("Out"), names{"file.qrx"});
}

TEST_F(on_windows, odd_names)
{
    for (const std::string name :
         {"%s%n", "-r", "--", ".hidden", "a b", "a/b", "'&^!", "[x]", "a.out"})
        plant_all({"my dir/" + name, "my dir/in " + name + "/" + name});
    expect_silent_success(run({"-10", "-r", "my dir", "out"}));
    EXPECT_EQ(listed("out").size(), 1 + listed("my dir").size());
    expect_silent_success(run({"-d", "-r", "out\\my dir", "back"}));
    EXPECT_EQ(tree_below(dir / "back/my dir"), tree_below(dir / "my dir"));
}

TEST_P(recursive, a_tree_of_200_files_and_directories_with_plain_names_is_rebuilt)
{
    expect_rebuilt(random_tree("abcdefghijklmnopqrstuvwxyz0123456789-_%'&()"));
}

// Files in use by other processes

TEST_F(on_windows, a_source_opened_exclusively_by_another_process_ends_the_loop)
{
    plant_all({"kept", "other", "out/"});
    const exclusive_file kept(dir / "kept");
    const program_result result = run({"-10", "kept", "other", "out"});
    EXPECT_EQ(result.err, "can't open input file 'kept'. 'Permission denied'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(listed("out"), names{});
}

TEST_F(on_windows, a_destination_opened_exclusively_by_another_process_ends_the_run)
{
    plant_all({"file", "other", "out/file.qrx"});
    const exclusive_file kept(dir / "out/file.qrx");
    const program_result result = run({"-10", "file", "other", "out"});
    EXPECT_EQ(result.err, "creat error 'out\\file.qrx' 'Permission denied'\n");
    EXPECT_EQ(result.status, 255);
    EXPECT_FALSE(exists("out/other.qrx"));
}

// Limits

TEST_F(on_windows, a_walk_accepts_names_of_up_to_258_bytes)
{
    plant_all({"mydir/a", "mydir/b"});
    const std::string fits = stretched(native(dir / "mydir"), 256);
    expect_silent_success(run({"-10", "-r", fits, "fits"}));
    EXPECT_EQ(listed("fits"), (names{"mydir/", "mydir/a.qrx", "mydir/b.qrx"}));
    const std::string too_long = stretched(native(dir / "mydir"), 257);
    expect_silent_success(run({"-10", "-r", too_long, "none"}));
    EXPECT_EQ(listed("none"), names{"mydir/"});
}

TEST_F(on_windows, more_files_than_the_runtime_has_streams)
{
    names arguments{"-10"};
    for (int i = 0; i < 600; ++i) {
        put(std::to_string(i), random_data(static_cast<usize>(i % 3)));
        arguments.push_back(std::to_string(i));
    }
    for (const char* threads : {"-p0", "-p2"}) {
        names compress = arguments;
        compress.insert(compress.end(), {threads, "out"});
        expect_silent_success(run(compress));
        expect_silent_success(run({"-d", threads, "out\\*", "back"}));
        EXPECT_EQ(listed("back").size(), 600U);
        for (int i = 0; i < 600; ++i)
            EXPECT_EQ(get("back/" + std::to_string(i)), get(std::to_string(i)));
        std::filesystem::remove_all(dir / "back");
    }
}

TEST_F(on_windows, a_level_that_is_not_a_digit_ends_with_status_3)
{
    const program_result result = run({"-5a", "good", "out"});
    EXPECT_EQ(result.out, "uknown level\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 3);
}

} // namespace
} // namespace quarnex::test
