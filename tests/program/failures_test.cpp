// What the program does when it can't make a file.
#include "program/failures_fixture.h"

namespace quarnex::test {
namespace {

INSTANTIATE_TEST_SUITE_P(threads, failures, testing::Values("-p0", "-p2"), thread_option_name);

TEST_P(failures, a_directory_in_the_place_of_a_compressed_file_ends_the_run)
{
    put("file", random_data(100));
    put("other", random_data(100));
    std::filesystem::create_directory(dir / "out/file.qrx");
    const program_result result = run({"-10", GetParam(), "file", "other", "out"});
    EXPECT_EQ(result.err, "creat error 'out/file.qrx' '" + is_a_directory + "'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 255);
    EXPECT_FALSE(exists("out/other.qrx"));
}

TEST_P(failures, a_directory_in_the_place_of_a_restored_file_ends_the_run)
{
    put_compressed_zeros("file.qrx", mib);
    put_compressed_zeros("other.qrx", mib);
    std::filesystem::create_directory(dir / "out/file");
    const program_result result = run({"-d", GetParam(), "file.qrx", "other.qrx", "out"});
    EXPECT_EQ(result.err, "creat error 'out/file' '" + is_a_directory + "'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 255);
    EXPECT_FALSE(exists("out/other"));
}

TEST_P(failures, files_before_the_one_that_ends_the_run_are_complete)
{
    put("first", random_data(3 * mib));
    put("second", random_data(100));
    std::filesystem::create_directory(dir / "out/second.qrx");
    EXPECT_EQ(run({"-10", GetParam(), "-b1", "first", "second", "out"}).status, 255);
    const auto file = take_qrx_apart(get("out/first.qrx"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->records.size(), 3U);
    EXPECT_TRUE(payloads_in_order(*file));
}

} // namespace
} // namespace quarnex::test
