#include "format/container.h"
#include "pipeline/workers_fixture.h"

namespace quarnex::test {
namespace {

TEST_F(workers, the_sentinel_ends_a_worker)
{
    EXPECT_TRUE(ends_with_nothing_more(start()));
    EXPECT_EQ(work.thread_failures(), 0U);
}

TEST_F(workers, a_block_is_encoded_and_queued_for_the_writer)
{
    const auto worker = start();
    next_block(quick_parameters); // skips block 0
    work.submit(next_block(quick_parameters));
    const write_job finished = work.writes.dequeue();
    EXPECT_EQ(finished.block_index, 1U);
    EXPECT_EQ(finished.block_count, 100U);
    EXPECT_EQ(finished.mode, direction::compress);
    EXPECT_EQ(finished.out_file, file);
    EXPECT_EQ(finished.size, unpack_record_head(finished.buf.get()).size + 5);
    EXPECT_TRUE(ends_with_nothing_more(worker));
}

TEST_F(workers, one_worker_handles_both_directions)
{
    const auto worker = start();
    work.submit(next_payload(900));
    const write_job data = work.writes.dequeue();
    EXPECT_EQ(content_of(data), bytes(900, 'q'));
    EXPECT_EQ(data.mode, direction::decompress);
    EXPECT_EQ(data.block_mb, 1U);
    work.submit(next_block(quick_parameters));
    EXPECT_EQ(work.writes.dequeue().mode, direction::compress);
    EXPECT_TRUE(ends_with_nothing_more(worker));
}

TEST_F(workers, a_failure_is_reported_once_and_the_rest_of_its_file_is_dropped)
{
    const auto worker = start();
    work.submit(next_block(failing_parameters));
    work.submit(next_block(quick_parameters));
    work.submit(next_block(failing_parameters));
    EXPECT_TRUE(ends_with_nothing_more(worker)) << "the valid block is dropped too";
    const auto reported = recorder.take();
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].kind, event_kind::block_uncoded);
    EXPECT_EQ(reported[0].codec_error, codec_status::no_table);
    EXPECT_EQ(reported[0].name, "source");
    EXPECT_TRUE(reported[0].on_worker);
    EXPECT_EQ(work.thread_failures(), 1U);
    EXPECT_EQ(work.first_failure(), status::no_memory);
    EXPECT_EQ(file->failure(), status::no_memory);
}

TEST_F(workers, a_worker_continues_with_other_files_after_a_failure)
{
    const auto worker = start();
    work.submit(next_block(failing_parameters));
    file = create_output(dir / "other");
    blocks = 0;
    work.submit(next_block(quick_parameters));
    EXPECT_EQ(work.writes.dequeue().out_file, file);
    EXPECT_TRUE(ends_with_nothing_more(worker));
}

TEST_F(workers, dropped_blocks_are_marked_done_so_that_the_driver_continues)
{
    const auto worker = start();
    for (u32 index = 0; index < 300; ++index) { // more than the window admits
        work.submit(next_block(failing_parameters));
    }
    EXPECT_TRUE(ends_with_nothing_more(worker));
    work.wait_for_blocks();
}

TEST_F(workers, a_block_without_memory_for_its_output_fails)
{
    limited_allocator refusing;
    engine short_of_memory(refusing.get(), 1, recorder.watcher());
    const auto worker = in_thread([&] { run_worker(short_of_memory); });
    for (const bool encodes : {true, false}) {
        block_job job = encodes
                            ? job_to_encode(short_of_memory.buffers, bytes(1000))
                            : job_to_decode(short_of_memory.buffers, m1_run_payload('q', 900), 900);
        job.out_file = create_output(dir / "other");
        refusing.refuse_from(1);
        short_of_memory.submit(std::move(job));
        short_of_memory.wait_for_blocks();
        refusing.refuse_from(SIZE_MAX);
        const auto reported = recorder.take();
        ASSERT_EQ(reported.size(), 1U);
        EXPECT_EQ(reported[0].kind, event_kind::no_memory);
    }
    short_of_memory.jobs.enqueue(end_of_work());
    EXPECT_TRUE(finishes(worker));
    EXPECT_EQ(short_of_memory.thread_failures(), 2U);
}

} // namespace
} // namespace quarnex::test
