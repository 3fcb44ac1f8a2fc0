#include "pipeline/block_coder_fixture.h"
#include "support/qrx_file.h"
#include "support/scoped_limits.h"

namespace quarnex::test {
namespace {

TEST_F(block_coder, encoding_without_memory_for_the_record_is_told)
{
    block_job job = job_to_encode(buffers, bytes(1000));
    job.in_len = 1024 * mib; // only asked for: the failure comes before the block is looked at
    const short_of_memory limit;
    EXPECT_EQ(encode_block(buffers, job, finished), block_result::no_memory);
}

TEST_F(block_coder, decoding_without_memory_for_the_block_is_told)
{
    block_job job = job_to_decode(buffers, m1_run_payload('z', 5000), 1024 * mib);
    const short_of_memory limit;
    EXPECT_EQ(decode_block(buffers, job, finished), block_result::no_memory);
}

} // namespace
} // namespace quarnex::test
