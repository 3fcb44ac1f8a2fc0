#include "pipeline/compress_driver.h"
#include "support/captured_output.h"
#include "support/scoped_limits.h"

#include <filesystem>
#include <thread>

namespace quarnex::test {
namespace {

TEST_P(compress_driver, a_source_that_cannot_be_read_is_told_and_fails)
{
    std::filesystem::create_directory(dir / "in");
    write_file(dir / "in/entry", {}); // gives the directory a size
    captured_output printed;
    const driver_run result = compress(GetParam(), quick_parameters, dir / "in", dir / "out");
    EXPECT_EQ(printed.err(), "can't read input file '" + dir / "in" + "'. 'Is a directory'\n");
    EXPECT_EQ(result.result, driver_failed);
}

TEST_P(compress_driver, a_header_that_cannot_be_written_is_failure_102)
{
    std::filesystem::create_symlink("/dev/full", dir / "out.qrx");
    expect_driver_failure(run(bytes(3 * mib)), disk_full_failure);
}

TEST_P(compress_driver, a_record_that_cannot_be_written_whole_is_failure_102)
{
    const bytes content = find_shape("random").make(3 * mib, 5);
    write_file(dir / "in", content);
    const short_of_disk limit(mib + mib / 2);
    const driver_run result = compress(GetParam(), quick_parameters, dir / "in", dir / "out");
    expect_failure(result, {error_write, "write error. errno=27 'File too large'"});
    EXPECT_EQ(std::filesystem::file_size(dir / "out.qrx"), mib + mib / 2);
}

/// Compresses a sparse file of `size` bytes as one block with little memory to spare.
driver_run compress_large(u32 workers, const temp_dir& dir, u64 size)
{
    write_file(dir / "in", {});
    std::filesystem::resize_file(dir / "in", size);
    file_parameters parameters = quick_parameters;
    parameters.block_mb = 1024;
    return run_driver(workers, direction::compress, [&](pipeline_state& state) {
        const short_of_memory limit;
        const i32 result = compress_file(state, parameters, dir / "in", dir / "out");
        // The limit stands until the worker has seen the block.
        while (workers != 0 && result == driver_done && state.abort_count == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return result;
    });
}

TEST_P(compress_driver, no_memory_for_the_block_is_failure_100)
{
    expect_driver_failure(compress_large(GetParam(), dir, 1024 * mib), no_memory_failure);
}

TEST_P(compress_driver, no_memory_for_the_record_is_failure_100)
{
    const driver_run run = compress_large(GetParam(), dir, 90 * mib);
    // With workers the driver can run short for its next block before a worker does.
    const auto failures = recorder.take();
    ASSERT_FALSE(failures.empty());
    for (const auto& failure : failures) EXPECT_EQ(failure, no_memory_failure);
    EXPECT_TRUE(run.abort_count != 0 || run.result == -no_memory_failure.first);
}

} // namespace
} // namespace quarnex::test
