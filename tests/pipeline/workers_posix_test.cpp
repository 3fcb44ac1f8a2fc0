#include "pipeline/workers_fixture.h"
#include "support/error_recorder.h"
#include "support/scoped_limits.h"

namespace quarnex::test {
namespace {

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
