#include "pipeline/pipeline.h"

#include "support/driver_runs.h"
#include "support/qrx_file.h"

#include <filesystem>

namespace quarnex::test {
namespace {

class pipeline : public testing::TestWithParam<u32> {
  protected:
    const time_guard guard;
};

TEST_P(pipeline, starts_its_workers_and_a_writer_and_ends_them_all)
{
    { // a sanitizer has a thread of its own from the first one on
        const system_thread first([] {});
    }
    const usize before = running_threads();
    pipeline_state state(GetParam());
    {
        const pipeline_threads threads(state, direction::compress);
        EXPECT_TRUE(threads.ready());
        const usize wanted = GetParam() == 0 ? 0 : GetParam() + 1;
        EXPECT_EQ(running_threads(), before + wanted);
    }
    // The system can show a thread that has ended for a moment more.
    EXPECT_TRUE(becomes_true([&] { return running_threads() == before; }));
    EXPECT_EQ(state.abort_count, 0);
}

INSTANTIATE_TEST_SUITE_P(, pipeline, testing::Values(0, 1, 2, 16), workers_name);

class pipeline_end : public pipeline {};

TEST_P(pipeline_end, lets_the_blocks_under_way_finish)
{
    const temp_dir dir;
    pipeline_state state(GetParam());
    const auto file = output_file::create(dir / "out");
    constexpr u32 blocks = 40;
    {
        const pipeline_threads threads(state, direction::decompress);
        for (u32 index = 0; index < blocks; ++index) {
            block_job job = job_to_decode(state.buffers, m1_run_payload('a', 100), 100);
            job.block_index = index;
            job.block_count = blocks;
            job.out_file = file;
            state.enqueue(std::move(job));
        }
    }
    EXPECT_EQ(file->stream_address(), nullptr) << "closed behind its last block";
    EXPECT_EQ(std::filesystem::file_size(dir / "out"), (blocks - 1) * mib + 100);
}

INSTANTIATE_TEST_SUITE_P(, pipeline_end, testing::Values(1, 2, 16), workers_name);

TEST(pipeline_queues, hold_as_many_blocks_as_there_are_workers)
{
    const time_guard guard;
    pipeline_state state(3);
    for (int i = 0; i < 3; ++i) state.jobs.enqueue({});
    const auto fourth = in_thread([&] { state.jobs.enqueue({}); });
    EXPECT_TRUE(still_waits(fourth));
    state.jobs.dequeue();
    EXPECT_TRUE(comes_to_its_end(fourth));
}

TEST(pipeline_destinations, a_name_used_before_waits_until_no_block_is_under_way)
{
    const time_guard guard;
    const temp_dir dir;
    pipeline_state state(2);
    const auto earlier = state.create_destination(dir / "out");
    for (u32 index = 0; index < 2; ++index) state.enqueue({});
    EXPECT_TRUE(state.create_destination(dir / "other")) << "a new name doesn't wait";

    const auto again = in_thread([&] { state.create_destination(dir / "out"); });
    EXPECT_TRUE(still_waits(again));
    state.settle(*earlier, 1, direction::compress);
    EXPECT_TRUE(still_waits(again));
    state.settle(*earlier, 0, direction::compress);
    EXPECT_TRUE(comes_to_its_end(again));
}

TEST(pipeline_destinations, a_file_that_comes_twice_is_written_by_the_last_alone)
{
    const time_guard guard;
    const temp_dir dir;
    write_file(dir / "first", find_shape("random").make(3 * mib, 1));
    write_file(dir / "second", to_bytes("second"));
    run_driver(3, direction::compress, [&](pipeline_state& state) {
        compress_file(state, quick_parameters, dir / "first", dir / "out");
        return compress_file(state, quick_parameters, dir / "second", dir / "out");
    });
    const auto file = take_qrx_apart(read_file(dir / "out.qrx"));
    ASSERT_TRUE(file);
    ASSERT_EQ(file->records.size(), 1U);
    EXPECT_EQ(file->records[0].payload, to_bytes("second"));
}

} // namespace
} // namespace quarnex::test
