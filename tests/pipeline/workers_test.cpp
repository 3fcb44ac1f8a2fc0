#include "pipeline/container.h"
#include "pipeline/pipeline.h"
#include "support/captured_output.h"
#include "support/error_recorder.h"
#include "support/pipeline_jobs.h"
#include "support/qrx_file.h"
#include "support/scoped_limits.h"
#include "support/temp_dir.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {
namespace {

/// One worker and its queues.  The test is the driver and the writer.
class workers : public testing::Test {
  protected:
    /// A block of its file, in the order in which they are asked for.
    block_job next_block(const file_parameters& parameters)
    {
        block_job job = job_to_encode(state.buffers, bytes(1000), parameters);
        job.block_index = blocks++;
        job.block_count = 100;
        job.out_file = file;
        return job;
    }

    /// A payload of a block of `out_len` bytes.
    block_job next_payload(u32 out_len)
    {
        block_job job = job_to_decode(state.buffers, m1_run_payload('q', 900), out_len);
        job.block_count = 100;
        job.out_file = file;
        return job;
    }

    std::future<void> start(direction mode)
    {
        return in_thread([this, mode] { run_worker(state, mode); });
    }

    /// Whether the worker takes its sentinel and ends without another finished block.
    bool ends_with_nothing_more(const std::future<void>& worker)
    {
        state.jobs.enqueue(end_of_work());
        if (!comes_to_its_end(worker)) return false;
        state.writes.enqueue({});
        return state.writes.dequeue().buf == nullptr;
    }

    const time_guard guard;
    temp_dir dir;
    pipeline_state state{1};
    std::shared_ptr<output_file> file = output_file::create(dir / "out");
    u32 blocks = 0;
};

TEST_F(workers, the_sentinel_ends_a_worker)
{
    for (const direction mode : {direction::compress, direction::decompress}) {
        EXPECT_TRUE(ends_with_nothing_more(start(mode)));
    }
    EXPECT_EQ(state.abort_count, 0);
}

TEST_F(workers, a_block_is_encoded_and_goes_to_the_writer)
{
    const auto worker = start(direction::compress);
    next_block(quick_parameters); // number 0 goes elsewhere
    state.enqueue(next_block(quick_parameters));
    const write_job finished = state.writes.dequeue();
    EXPECT_EQ(finished.block_index, 1U);
    EXPECT_EQ(finished.block_count, 100U);
    EXPECT_EQ(finished.block_mb, 0U);
    EXPECT_EQ(finished.out_file, file);
    EXPECT_EQ(finished.size, unpack_record_head(finished.buf.get()).size + 5);
    EXPECT_TRUE(ends_with_nothing_more(worker));
}

TEST_F(workers, a_payload_is_decoded_and_goes_to_the_writer)
{
    const auto worker = start(direction::decompress);
    state.enqueue(next_payload(900));
    const write_job finished = state.writes.dequeue();
    EXPECT_EQ(content_of(finished), bytes(900, 'q'));
    EXPECT_EQ(finished.block_mb, 1U);
    EXPECT_TRUE(ends_with_nothing_more(worker));
}

TEST_F(workers, a_failed_worker_says_so_once_and_goes_on_discarding)
{
    captured_output printed;
    const auto worker = start(direction::compress);
    state.enqueue(next_block(failing_parameters));
    state.enqueue(next_block(quick_parameters));
    state.enqueue(next_block(failing_parameters));
    EXPECT_TRUE(ends_with_nothing_more(worker)) << "not even the block that could be coded";
    EXPECT_EQ(printed.out(), "error compressing\n");
    EXPECT_EQ(state.abort_count, 1);
}

TEST_F(workers, the_blocks_of_a_failed_worker_are_settled_so_that_the_driver_goes_on)
{
    captured_output printed;
    const auto worker = start(direction::compress);
    for (u32 index = 0; index < 300; ++index) { // more than may be unsettled
        file->window.wait_to_enter(index);
        state.enqueue(next_block(failing_parameters));
    }
    EXPECT_TRUE(ends_with_nothing_more(worker));
}

TEST_F(workers, a_failed_worker_frees_what_it_holds)
{
    captured_output printed;
    const auto worker = start(direction::compress);
    state.enqueue(next_block(failing_parameters));
    state.enqueue(next_block(quick_parameters));
    EXPECT_TRUE(ends_with_nothing_more(worker));
    EXPECT_EQ(file.use_count(), 1);
}

TEST_F(workers, encoding_without_memory_is_failure_100)
{
    error_recorder recorder;
    const auto worker = start(direction::compress);
    block_job large = next_block(quick_parameters);
    large.in_len = 1024 * mib;
    {
        const short_of_memory limit;
        state.enqueue(std::move(large));
        state.enqueue(next_block(quick_parameters));
        EXPECT_TRUE(ends_with_nothing_more(worker));
    }
    EXPECT_EQ(recorder.take(), std::vector{no_memory_failure});
    EXPECT_EQ(state.abort_count, 1);
}

TEST_F(workers, decoding_without_memory_is_failure_100)
{
    error_recorder recorder;
    const auto worker = start(direction::decompress);
    {
        const short_of_memory limit;
        state.enqueue(next_payload(1024 * mib));
        state.enqueue(next_payload(900));
        EXPECT_TRUE(ends_with_nothing_more(worker));
    }
    EXPECT_EQ(recorder.take(), std::vector{no_memory_failure});
    EXPECT_EQ(state.abort_count, 1);
}

} // namespace
} // namespace quarnex::test
