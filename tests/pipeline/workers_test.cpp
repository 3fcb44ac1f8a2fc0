#include "format/container.h"
#include "pipeline/workers_fixture.h"
#include "support/captured_output.h"

namespace quarnex::test {
namespace {

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

} // namespace
} // namespace quarnex::test
