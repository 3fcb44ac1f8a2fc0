#include "pipeline/engine.h"

#include "support/driver_runs.h"
#include "support/qrx_file.h"

#include <filesystem>

namespace quarnex::test {
namespace {

class engine_runs : public testing::TestWithParam<u32> {
  protected:
    const time_guard guard;
};

TEST_P(engine_runs, starts_and_ends_its_workers_and_a_writer)
{
    { // a sanitizer starts its own thread with the first one
        system_thread first;
        ASSERT_TRUE(first.start([](void*) {}, nullptr));
    }
    const usize before = running_threads();
    event_recorder recorder;
    engine work(system_allocator, GetParam(), recorder.watcher());
    {
        const engine_threads threads(work);
        EXPECT_TRUE(threads.ready());
        const usize wanted = GetParam() == 0 ? 0 : GetParam() + 1;
        EXPECT_EQ(running_threads(), before + wanted);
    }
    // The system may still list a thread for a moment after it has ended.
    EXPECT_TRUE(becomes_true([&] { return running_threads() == before; }));
    EXPECT_EQ(work.thread_failures(), 0U);
}

INSTANTIATE_TEST_SUITE_P(, engine_runs, testing::Values(0, 1, 2, 16), workers_name);

class engine_end : public engine_runs {};

TEST_P(engine_end, waits_for_the_blocks_in_flight)
{
    const temp_dir dir;
    event_recorder recorder;
    engine work(system_allocator, GetParam(), recorder.watcher());
    const output_ref file = create_output(dir / "out");
    constexpr u32 blocks = 40;
    {
        const engine_threads threads(work);
        for (u32 index = 0; index < blocks; ++index) {
            block_job job = job_to_decode(work.buffers, m1_run_payload('a', 100), 100);
            job.block_index = index;
            job.block_count = blocks;
            job.out_file = file;
            work.submit(std::move(job));
        }
    }
    EXPECT_FALSE(file->file.is_open()) << "closed after its last block";
    EXPECT_EQ(std::filesystem::file_size(dir / "out"), (blocks - 1) * mib + 100);
}

INSTANTIATE_TEST_SUITE_P(, engine_end, testing::Values(1, 2, 16), workers_name);

TEST(engine_queues, hold_one_block_per_worker)
{
    const time_guard guard;
    engine work(system_allocator, 3, {});
    for (int i = 0; i < 3; ++i) work.jobs.enqueue({});
    const auto fourth = in_thread([&] { work.jobs.enqueue({}); });
    EXPECT_TRUE(still_waits(fourth));
    work.jobs.dequeue();
    EXPECT_TRUE(finishes(fourth));
}

TEST(engine_failures, the_first_is_kept)
{
    event_recorder recorder;
    engine work(system_allocator, 0, recorder.watcher());
    EXPECT_EQ(work.first_failure(), status::done);
    EXPECT_EQ(work.fail(status::corrupt), status::corrupt);
    EXPECT_EQ(work.fail(status::no_memory), status::no_memory);
    EXPECT_EQ(work.first_failure(), status::corrupt);
    EXPECT_EQ(work.thread_failures(), 0U);
}

TEST(engine_observer, may_be_absent)
{
    const temp_dir dir;
    engine work(system_allocator, 0, {});
    const std::string missing = dir / "none";
    EXPECT_EQ(decompress_file(work, {missing.c_str(), missing.c_str()}), status::source_unopened);
}

} // namespace
} // namespace quarnex::test
