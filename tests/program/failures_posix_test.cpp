// Runs of the program that lack resources (files, disk space, memory, threads) because of limits,
// modes and pipes.
#include "program/failures_fixture.h"
#include "support/limits.h"
#include "support/named_pipe.h"

#include "common/platform/cpu.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

namespace quarnex::test {
namespace {

constexpr const char* no_memory = "100: malloc error";
constexpr const char* file_too_large = "102: write error. errno=27 'File too large'";
constexpr const char* disk_full = "102: write error. errno=28 'No space left on device'";

/// Returns whether the test system could not set up the condition.
bool setup_failed(const program_result& result)
{
    return result.status == status_not_set_up;
}

// Files that can't be opened

TEST_P(failures, an_unreadable_source_ends_the_loop)
{
    put("secret", random_data(100));
    put("other", random_data(100));
    std::filesystem::permissions(dir / "secret", std::filesystem::perms::none);
    settings.before_exec = obey_permissions;
    const program_result result = run({"-10", GetParam(), "secret", "other", "out"});
    if (setup_failed(result)) GTEST_SKIP() << "the superuser's rights can't be given up here";
    EXPECT_EQ(result.err, "can't open input file 'secret'. 'Permission denied'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

TEST_P(failures, an_unwritable_destination_directory_ends_the_run)
{
    put("file", random_data(100));
    put_compressed_zeros("zeros.qrx", mib);
    std::filesystem::permissions(dir / "out", std::filesystem::perms::owner_read |
                                                  std::filesystem::perms::owner_exec);
    settings.before_exec = obey_permissions;
    const program_result compressing = compress("file");
    if (setup_failed(compressing)) GTEST_SKIP() << "the superuser's rights can't be given up here";
    EXPECT_EQ(compressing.err, "creat error 'out/file.qrx' 'Permission denied'\n");
    EXPECT_EQ(compressing.status, 255);
    const program_result restoring = restore("zeros.qrx");
    EXPECT_EQ(restoring.err, "creat error 'out/zeros' 'Permission denied'\n");
    EXPECT_EQ(restoring.status, 255);
    const program_result creating = run({"-10", GetParam(), "file", "out/below"});
    EXPECT_EQ(creating.err, "cannot create directory 'out/below'\n");
    EXPECT_EQ(creating.status, 255);
}

// Files that can't be written completely

TEST_P(failures, a_header_that_exceeds_the_file_size_limit)
{
    put("file", random_data(100));
    settings.before_exec = limit(RLIMIT_FSIZE, 31);
    expect_fatal_error(compress("file"), "out/file.qrx", file_too_large);
}

TEST_P(failures, a_record_that_exceeds_the_file_size_limit)
{
    put("file", random_data(5 * mib));
    settings.before_exec = limit(RLIMIT_FSIZE, 2 * mib);
    expect_fatal_error(compress("file"), "out/file.qrx", file_too_large);
}

TEST_P(failures, a_restored_file_that_exceeds_the_file_size_limit)
{
    put_compressed_zeros("file.qrx", 8 * mib);
    settings.before_exec = limit(RLIMIT_FSIZE, 2 * mib + 1);
    expect_fatal_error(restore("file.qrx"), "out/file", file_too_large);
    // With workers the first block written may be one beyond the limit.
    EXPECT_LE(std::filesystem::file_size(dir / "out/file"), 2 * mib + 1);
}

TEST_P(failures, a_device_without_space)
{
    put("file", random_data(100));
    put_compressed_zeros("zeros.qrx", 3 * mib);
    std::filesystem::create_symlink("/dev/full", dir / "out/file.qrx");
    std::filesystem::create_symlink("/dev/full", dir / "out/zeros");
    expect_fatal_error(compress("file"), "out/file.qrx", disk_full);
    expect_fatal_error(restore("zeros.qrx"), "out/zeros", disk_full);
}

TEST_P(failures, a_disk_that_fills_up)
{
    put("file", random_data(5 * mib));
    put_compressed_zeros("zeros.qrx", 5 * mib);
    settings.before_exec = small_disk(dir / "out", 2 * mib);
    const program_result compressing = compress("file");
    if (setup_failed(compressing)) GTEST_SKIP() << "no file systems can be mounted here";
    expect_fatal_error(compressing, "out/file.qrx", disk_full);
    expect_fatal_error(restore("zeros.qrx"), "out/zeros", disk_full);
}

// Standard streams

TEST_P(failures, closed_standard_streams_never_become_files_of_the_user)
{
    const bytes content = random_data(3 * mib);
    put("file", content);
    settings.before_exec = [] {
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(stream);
    };
    EXPECT_EQ(run({"-10", GetParam(), "-r", "-v", "-b1", "file", "missing", "out"}).status, 0);
    EXPECT_EQ(run({"-d", GetParam(), "-r", "-v", "out/file.qrx", "missing", "out"}).status, 0);
    EXPECT_EQ(get("out/file"), content);
    EXPECT_TRUE(parse_qrx(get("out/file.qrx")));
}

// Sources that change

TEST_P(failures, a_source_that_shrinks_while_read_is_compressed_as_far_as_read)
{
    // The program blocks on the pipe while it writes its first block.  By the time the file shrinks
    // it has read no more than its workers and queues hold.
    constexpr usize shrunk_size = 16 * mib + mib / 2;
    bytes data = random_data(24 * mib);
    put("file", data);
    named_pipe output(dir / "out/file.qrx", 37,
                      [&] { std::filesystem::resize_file(dir / "file", shrunk_size); });
    const program_result result = compress("file");
    EXPECT_EQ(result.err, "input file 'file' has become shorter\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);

    const auto file = parse_qrx(output.content());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->header.original_size, data.size());
    const auto payloads = payloads_in_order(*file);
    ASSERT_TRUE(payloads);
    bytes read;
    for (const bytes& payload : *payloads) read.insert(read.end(), payload.begin(), payload.end());
    data.resize(shrunk_size);
    EXPECT_TRUE(read == data);
}

TEST_P(failures, a_source_that_grows_while_read_is_cut_at_its_initial_size)
{
    const bytes data = random_data(8 * mib);
    put("file", data);
    named_pipe output(dir / "out/file.qrx", 37,
                      [&] { std::filesystem::resize_file(dir / "file", 9 * mib); });
    expect_silent_success(compress("file"));
    const auto file = parse_qrx(output.content());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->header.original_size, data.size());
    EXPECT_EQ(file->records.size(), 8U);
}

TEST_P(failures, a_source_that_vanishes_before_its_turn_ends_the_loop)
{
    put("first", random_data(24 * mib));
    put("second", random_data(100));
    named_pipe output(dir / "out/first.qrx", 37, [&] { std::filesystem::remove(dir / "second"); });
    const program_result result = run({"-10", GetParam(), "-b1", "first", "second", "out"});
    EXPECT_EQ(result.err, "can't open input file 'second'. 'No such file or directory'\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(exists("out/second.qrx"));
}

// Memory and threads

/// Parameterized by number of workers, with limited address space.
class failures_for_lack_of_memory : public failures {
  protected:
    /// Creates a sparse file of zeros.
    void put_zeros(const std::string& name, usize size) const
    {
        put(name, {});
        std::filesystem::resize_file(dir / name, size);
    }

  private:
    void SetUp() override
    {
        if (under_sanitizer) GTEST_SKIP() << "a sanitizer's shadow memory exceeds the limit";
    }
};

TEST_P(failures_for_lack_of_memory, of_the_blocks)
{
    put_zeros("file", 600 * mib);
    settings.before_exec = limit(RLIMIT_AS, 900 * mib);
    expect_fatal_error(run({"-10", GetParam(), "-b600", "file", "out"}), "file", no_memory);
}

TEST_P(failures_for_lack_of_memory, of_a_restored_block)
{
    qrx_file file{{}, {{0, m1_run_payload(0, 1900 * mib)}}};
    file.header.original_size = 1900 * mib;
    file.header.block_mb = 1900;
    put("file.qrx", build_qrx(file));
    settings.before_exec = limit(RLIMIT_AS, 900 * mib);
    expect_fatal_error(restore("file.qrx"), "file.qrx", no_memory);
}

TEST_P(failures_for_lack_of_memory, of_a_hash_table)
{
    put("file", bytes(1000));
    put("other", bytes(1000));
    settings.before_exec = limit(RLIMIT_AS, 2048 * mib); // half of a table of 2^30 entries
    const program_result result = run({"-10", "-D30", GetParam(), "file", "other", "out"});
    EXPECT_TRUE(matches(result.err, "((file|other): not enough memory for block 0\n)+"))
        << result.err;
    if (std::string(GetParam()) == "-p0") { // a failure of the driver ends the loop
        EXPECT_EQ(result.out, "compression error\n");
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(exists("out/other.qrx"));
    } else { // a failure of a worker affects only its file
        EXPECT_EQ(result.out, "error compressing\nerror compressing\n");
        EXPECT_EQ(result.status, 1);
    }
    EXPECT_EQ(get("out/file.qrx").size(), 32U); // only the header
}

TEST_P(failures_for_lack_of_memory, of_all_workers_does_not_hang)
{
    put_zeros("file", 300 * mib);
    settings.before_exec = limit(RLIMIT_AS, 2048 * mib);
    const program_result result = run({"-10", "-D30", "-b1", GetParam(), "file", "out"});
    EXPECT_EQ(result.status, std::string(GetParam()) == "-p0" ? 0 : 1);
    EXPECT_EQ(get("out/file.qrx").size(), 32U);
}

/// Runs on a system that can't start threads: each failed start prints a line.
class threads_that_do_not_start : public program_fixture {
  protected:
    threads_that_do_not_start()
    {
        put("file", random_data(100));
        // New threads allocate a stack of the limit's size, which exceeds the address space.
        settings.before_exec = limit(RLIMIT_STACK, SIZE_MAX / 8 * 7);
    }

    void SetUp() override
    {
        if (under_sanitizer) GTEST_SKIP() << "a sanitizer can't run with such a stack";
        if (run({"-h"}).status == status_not_set_up)
            GTEST_SKIP() << "the stack limit can't be raised here";
    }

    /// Expects a run in which `workers` workers and a writer fail to start.
    void expect_wanted(u32 workers, const std::vector<std::string>& arguments) const
    {
        const program_result result = run(arguments);
        std::string lines;
        for (u32 i = 0; i < workers + 1; ++i) lines += "Error thread_create.\n";
        EXPECT_EQ(result.out, lines);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 255);
        EXPECT_FALSE(exists("out"));
    }
};

TEST_F(threads_that_do_not_start, are_not_reported_when_none_are_requested)
{
    expect_silent_success(run({"-10", "-p0", "file", "out"}));
    expect_silent_success(run({"-d", "-p0", "out/file.qrx", "restored"}));
    EXPECT_EQ(get("restored/file"), get("file"));
}

TEST_F(threads_that_do_not_start, one_worker_and_a_writer)
{
    expect_wanted(1, {"-10", "-p1", "file", "out"});
    expect_wanted(1, {"-d", "-p1", "file", "out"});
}

TEST_F(threads_that_do_not_start, one_worker_for_each_processor)
{
    const u32 workers = std::min(processor_count(), 16U);
    expect_wanted(workers, {"-10", "file", "out"});
    expect_wanted(workers, {"-10", "-p99", "file", "out"});
    expect_wanted(workers, {"-d", "file", "out"});
}

TEST_F(threads_that_do_not_start, sixteen_workers_of_99_when_restoring)
{
    expect_wanted(16, {"-d", "-p99", "file", "out"});
}

// Progress

TEST_P(failures, progress_shows_on_a_terminal_only)
{
    put("file", random_data(20 * mib));
    for (const bool terminal : {true, false}) {
        // Let time pass while the program blocks on the pipe with its first block.
        named_pipe output(dir / "out/file.qrx", 37,
                          [] { std::this_thread::sleep_for(std::chrono::milliseconds(400)); });
        settings.err_is_terminal = terminal;
        const program_result result = compress("file");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 0);
        const std::string line("(\rfile [ 0-9]{3} %)+\r\033\\[K"); // erased at the end
        if (terminal)
            EXPECT_TRUE(matches(result.err, line)) << result.err;
        else
            EXPECT_EQ(result.err, "");
        output.content();
        std::filesystem::remove(dir / "out/file.qrx");
    }
}

INSTANTIATE_TEST_SUITE_P(threads, failures_for_lack_of_memory, testing::Values("-p0", "-p2"),
                         thread_option_name);

} // namespace
} // namespace quarnex::test
