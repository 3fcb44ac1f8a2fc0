// Runs of the program that can't create a file.
#include "program/failures_fixture.h"

namespace quarnex::test {
namespace {

INSTANTIATE_TEST_SUITE_P(threads, failures, testing::Values("-p0", "-p2"), thread_option_name);

TEST_P(failures, a_directory_named_like_a_compressed_file_ends_the_run)
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

TEST_P(failures, a_directory_named_like_a_restored_file_ends_the_run)
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
    const auto file = parse_qrx(get("out/first.qrx"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->records.size(), 3U);
    EXPECT_TRUE(payloads_in_order(*file));
}

TEST_P(failures, a_block_larger_than_a_32_bit_address_space_is_failure_100)
{
    if (sizeof(void*) > sizeof(u32)) GTEST_SKIP() << "a 64-bit address space holds it";
    put("file", {});
    std::filesystem::resize_file(dir / "file", u64{3} << 30); // a sparse file
    const program_result result = run({"-10", GetParam(), "-b2047", "file", "out"});
    expect_fatal_error(result, "file", "100: malloc error");
}

} // namespace
} // namespace quarnex::test
