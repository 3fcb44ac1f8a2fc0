// Directories compressed and restored with -r.
#include "program/recursive_fixture.h"
#include "support/paths.h"

namespace quarnex::test {
namespace {

// Paths of outputs

TEST_P(recursive, a_plain_file_among_the_names_goes_directly_to_the_destination)
{
    plant_all({"far/away/file", "mydir/x"});
    expect_silent_success(compress({"far/away/file", "mydir"}));
    EXPECT_EQ(listed("out"), (names{"file.qrx", "mydir/", "mydir/x.qrx"}));
    EXPECT_TRUE(holds("out/file.qrx", bytes_of("far/away/file")));
    EXPECT_TRUE(holds("out/mydir/x.qrx", bytes_of("mydir/x")));
    expect_silent_success(restore({"out/mydir/x.qrx", "out/file.qrx"}));
    EXPECT_EQ(tree("back"),
              (file_tree{{"file", bytes_of("far/away/file")}, {"x", bytes_of("mydir/x")}}));
}

TEST_P(recursive, a_file_in_a_subdirectory_keeps_its_place_below_the_destination)
{
    plant_all({"mydir/a/b.txt"});
    expect_silent_success(compress({"mydir"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/a/", "mydir/a/b.txt.qrx"}));
    expect_silent_success(restore({"out/mydir"}));
    EXPECT_EQ(tree("back/mydir"), tree("mydir"));
}

TEST_P(recursive, the_part_of_a_root_before_its_last_separator_is_not_repeated)
{
    plant_all({"top/sub/a/x", "top/other"});
    expect_silent_success(compress({"top/sub"}));
    EXPECT_EQ(listed("out"), (names{"sub/", "sub/a/", "sub/a/x.qrx"}));
    expect_silent_success(compress({dir / "top/sub"}, "absolute"));
    EXPECT_EQ(tree("absolute"), tree("out"));
}

TEST_P(recursive, an_empty_directory_is_recreated_empty)
{
    plant_all({"mydir/a/empty/", "bare/"});
    expect_silent_success(compress({"mydir", "bare"}));
    EXPECT_EQ(listed("out"), (names{"bare/", "mydir/", "mydir/a/", "mydir/a/empty/"}));
    expect_silent_success(restore({"out/mydir", "out/bare"}));
    EXPECT_EQ(tree("back"), tree("out"));
}

TEST_P(recursive, a_root_with_a_trailing_separator_is_not_repeated_either)
{
    plant_all({"mydir/a/x", "mydir/y"});
    expect_silent_success(compress({"mydir/"}));
    EXPECT_EQ(listed("out"), (names{"a/", "a/x.qrx", "y.qrx"}));
    expect_silent_success(restore({"out/"}));
    EXPECT_EQ(tree("back"), tree("mydir"));
}

TEST_P(recursive, the_working_directory_as_a_root)
{
    plant_all({"a/x", "y"});
    expect_silent_success(compress({"."}));
    EXPECT_EQ(listed("out"), (names{"a/", "a/x.qrx", "y.qrx"}));
}

TEST_P(recursive, a_destination_that_is_absolute_or_has_a_trailing_separator)
{
    plant_all({"mydir/a/x"});
    expect_silent_success(compress({"mydir"}));
    for (const std::string& destination : {dir / "absolute", dir / "both/", std::string("tail/")}) {
        expect_silent_success(compress({"mydir"}, destination));
        const auto created = std::filesystem::path(dir.path()) / destination / "";
        EXPECT_EQ(tree_below(created.parent_path().string()), tree("out")) << destination;
    }
}

TEST_P(recursive, a_tree_that_is_there_already_is_filled_and_overwritten)
{
    plant_all({"mydir/a/x", "mydir/empty/", "out/mydir/a/old", "out/mydir/a/x.qrx"});
    expect_silent_success(compress({"mydir"}));
    expect_silent_success(compress({"mydir"}));
    EXPECT_EQ(listed("out"),
              (names{"mydir/", "mydir/a/", "mydir/a/old", "mydir/a/x.qrx", "mydir/empty/"}));
    EXPECT_TRUE(holds("out/mydir/a/x.qrx", bytes_of("mydir/a/x")));
}

TEST_P(recursive, a_walk_into_the_working_directory_writes_next_to_the_sources)
{
    plant_all({"mydir/x", "mydir/a/y"});
    const file_tree before = tree("mydir");
    expect_silent_success(compress({"mydir"}, "."));
    EXPECT_EQ(listed("."), (names{"mydir/", "mydir/a/", "mydir/a/y", "mydir/a/y.qrx", "mydir/x",
                                  "mydir/x.qrx"}));
    for (const char* name : {"mydir/x", "mydir/a/y"}) std::filesystem::remove(dir / name);
    // The outputs are not compressed files: visiting one would end the run.
    expect_silent_success(restore({"mydir"}, "."));
    for (const char* name : {"mydir/x.qrx", "mydir/a/y.qrx"}) std::filesystem::remove(dir / name);
    EXPECT_EQ(tree("mydir"), before);
}

TEST_P(recursive, files_with_the_suffix_are_not_compressed_again)
{
    plant_all({"mydir/x", "mydir/y.qrx", "mydir/z.QRX"});
    expect_silent_success(compress({"mydir", "mydir/y.qrx"}));
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/x.qrx"}));
}

TEST_P(recursive, directories_are_skipped_without_dash_r)
{
    plant_all({"mydir/x", "file"});
    expect_silent_success(run({"-10", GetParam(), "mydir", "file", "out"}));
    EXPECT_EQ(listed("out"), names{"file.qrx"});
}

// The destination among the inputs

TEST_P(recursive, a_destination_inside_the_tree_is_not_entered)
{
    plant_all({"mydir/x", "mydir/out/old", "mydir/z/y"});
    expect_silent_success(compress({"mydir"}, "mydir/out"));
    EXPECT_EQ(listed("mydir/out"),
              (names{"mydir/", "mydir/x.qrx", "mydir/z/", "mydir/z/y.qrx", "old"}));
    expect_silent_success(restore({"mydir/out/mydir"}, "mydir/out/mydir/z"));
    EXPECT_EQ(listed("mydir/out/mydir/z"), (names{"mydir/", "mydir/x", "y.qrx"}));
}

TEST_P(recursive, a_destination_created_inside_the_tree_is_not_entered)
{
    plant_all({"mydir/x"});
    expect_silent_success(compress({"mydir"}, "mydir/new"));
    EXPECT_EQ(listed("mydir/new"), (names{"mydir/", "mydir/x.qrx"}));
}

TEST_P(recursive, a_destination_among_the_inputs_is_compressed_in_place)
{
    plant_all({"out/x", "out/sub/y", "z"});
    expect_silent_success(compress({"out", "z"}));
    EXPECT_EQ(listed("out"), (names{"sub/", "sub/y", "sub/y.qrx", "x", "x.qrx", "z.qrx"}));
    expect_silent_success(compress({"./out/."})); // compressed files are not compressed again
    EXPECT_EQ(listed("out"), (names{"sub/", "sub/y", "sub/y.qrx", "x", "x.qrx", "z.qrx"}));
}

TEST_P(recursive, a_destination_among_the_inputs_is_restored_in_place)
{
    plant_all({"out/sub/y", "out/x"});
    expect_silent_success(compress({"out"}));
    std::filesystem::remove(dir / "out/sub/y");
    const program_result restoring = restore({"out"}, "out");
    EXPECT_EQ(restoring.out, "");
    EXPECT_EQ(with_slashes(restoring.err), "out/x: skipped, its name does not end in .qrx\n");
    EXPECT_EQ(restoring.status, 0);
    EXPECT_EQ(listed("out"), (names{"sub/", "sub/y", "sub/y.qrx", "x", "x.qrx"}));
    EXPECT_EQ(get("out/sub/y"), bytes_of("out/sub/y"));
}

// Two files for one destination

TEST_P(recursive, the_last_of_two_files_for_one_destination_is_complete)
{
    plant("a/x", random_data(20 * mib));
    plant("b/x", random_data(1000, 2));
    expect_silent_success(compress({"a/.", "b/x"}));
    EXPECT_EQ(listed("out"), names{"x.qrx"});
    EXPECT_TRUE(holds("out/x.qrx", get("b/x")));
}

TEST_P(recursive, a_root_that_ends_in_two_dots_stays_below_the_destination)
{
    plant_all({"t/a/x", "x"});
    expect_silent_success(compress({"t/a/.."}));
    EXPECT_EQ(listed("out"), (names{"a/", "a/x.qrx"}));
    expect_silent_success(restore({"out/a/.."}));
    EXPECT_EQ(listed("back"), (names{"a/", "a/x"}));
    EXPECT_TRUE(holds("out/a/x.qrx", get("t/a/x")));
}

TEST_P(recursive, the_last_of_two_restored_files_for_one_destination_is_complete)
{
    plant("a/x", random_data(20 * mib));
    plant("b/x", random_data(1000, 2));
    expect_silent_success(compress({"a", "b"}));
    expect_silent_success(restore({"out/a/.", "out/b/x.qrx"}));
    EXPECT_EQ(listed("back"), names{"x"});
    EXPECT_TRUE(get("back/x") == get("b/x"));
}

// Names that can't be inputs

TEST_P(recursive, a_name_that_does_not_exist_prints_one_line)
{
    plant_all({"mydir/x", "file"});
    const program_result result = compress({"mydir", "none", "file", "far/none"});
    EXPECT_EQ(result.err, "none: No such file or directory\nfar/none: No such file or directory\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(listed("out"), (names{"file.qrx", "mydir/", "mydir/x.qrx"}));
    const program_result restoring = restore({"none.qrx", "out/file.qrx"});
    EXPECT_EQ(restoring.err, "none.qrx: No such file or directory\n");
    EXPECT_EQ(restoring.status, 0);
    EXPECT_EQ(listed("back"), names{"file"});
}

TEST_P(recursive, a_first_name_that_is_too_long_skips_the_whole_walk_silently)
{
    plant_all({"file", "mydir/x"});
    expect_silent_success(compress({stretched(native(dir / "file"), path_buffer_bytes), "mydir"}));
    EXPECT_EQ(listed("out"), names{});
    expect_silent_success(
        compress({stretched(native(dir / "file"), path_buffer_bytes - 1), "mydir"}));
    EXPECT_EQ(listed("out"), (names{"file.qrx", "mydir/", "mydir/x.qrx"}));
}

TEST_P(recursive, the_101st_nested_directory_is_created_without_its_content)
{
    plant_all({nested_directories(101) + "/lost", nested_directories(100) + "/x"});
    expect_silent_success(compress({"d"}));
    const names created = listed("out");
    ASSERT_EQ(created.size(), 102U);
    EXPECT_EQ(created[100], nested_directories(101) + "/");
    EXPECT_EQ(created[101], nested_directories(100) + "/x.qrx");
    expect_silent_success(restore({"out/d"}));
    EXPECT_EQ(get("back/" + nested_directories(100) + "/x"), get(nested_directories(100) + "/x"));
}

// Failures that end the run, and failures that don't

TEST_P(recursive, a_directory_that_cannot_be_created_ends_the_run)
{
    plant_all({"mydir/a/b/x", "mydir/z", "out/mydir/a"});
    for (const auto& result : {compress({"mydir"}), restore({"mydir"}, "out")}) {
        EXPECT_EQ(result.err, "cannot create directory 'out/mydir/a/b'"); // without a line end
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 255);
    }
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/a"}));
}

TEST_P(recursive, files_before_a_directory_that_cannot_be_created_are_complete)
{
    plant("mydir/a", random_data(5 * mib));
    plant_all({"mydir/b/c/", "out/mydir/b"});
    const program_result result = compress({"mydir"});
    EXPECT_EQ(result.err, "cannot create directory 'out/mydir/b/c'");
    EXPECT_EQ(result.status, 255);
    EXPECT_TRUE(holds("out/mydir/a.qrx", get("mydir/a")));
}

TEST_P(recursive, an_output_that_cannot_be_created_ends_the_run)
{
    plant("mydir/a", random_data(5 * mib));
    plant_all({"mydir/b", "mydir/c", "out/mydir/b.qrx/"});
    const program_result result = compress({"mydir"});
    EXPECT_EQ(result.err, "creat error 'out/mydir/b.qrx' '" + is_a_directory + "'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(listed("out"), (names{"mydir/", "mydir/a.qrx", "mydir/b.qrx/"}));
    EXPECT_TRUE(holds("out/mydir/a.qrx", get("mydir/a")));
}

TEST_P(recursive, a_damaged_file_is_reported_and_all_others_are_restored)
{
    plant("mydir/a", random_data(3 * mib));
    plant("mydir/c/x", random_data(3 * mib, 2));
    expect_silent_success(compress({"mydir"}));
    qrx_file damaged{{}, {{0, m1_run_payload('b', 1000)}}};
    damaged.header.original_size = 3000;
    plant("out/mydir/b.qrx", build_qrx(damaged));
    const program_result result = restore({"out/mydir"});
    EXPECT_EQ(result.out, "Fatal Error in decomp 'back/mydir/b'.1000,3000\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    bytes content(1000, 'b');
    content.resize(3000); // the missing part is zeros
    file_tree expected = tree("mydir");
    expected["b"] = content;
    EXPECT_TRUE(tree("back/mydir") == expected);
}

TEST_P(recursive, a_file_that_was_not_compressed_ends_the_process)
{
    plant("mydir/a.qrx", bytes(40, 'a'));
    plant("mydir/b.qrx", build_qrx({{}, {{0, {}}}}));
    expect_fatal_error(restore({"mydir"}), "mydir/a.qrx", "104: file header. no quarnex format",
                       "'mydir/a.qrx' not qrx file\n");
    EXPECT_EQ(listed("back"), names{"mydir/"});
}

// Whole trees

TEST_P(recursive, large_and_small_files_side_by_side_are_restored)
{
    for (u32 i = 0; i < 40; ++i) {
        const usize size = i % 8 == 0 ? 3 * mib + i : usize{i} * 100;
        plant("tree/" + std::to_string(i % 5) + "/" + std::to_string(i), random_data(size, i));
    }
    expect_silent_success(compress({"tree"}));
    expect_silent_success(restore({"out/tree"}));
    EXPECT_TRUE(tree("back/tree") == tree("tree"));
}

INSTANTIATE_TEST_SUITE_P(threads, recursive, testing::Values("-p0", "-p2"), thread_option_name);

} // namespace
} // namespace quarnex::test
