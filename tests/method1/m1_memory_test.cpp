#include "method1/m1_codec.h"
#include "support/codec_runs.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(m1_encoder, no_memory_for_the_table_is_a_failure)
{
    const test::bytes block(100 + in_slack);
    test::bytes out(100 + out_slack);
    codec_job job;
    job.in_buf = block.data();
    job.in_len = 100;
    job.out_buf = out.data();
    test::limited_allocator limit;
    limit.refuse_from(1 << 20);
    scratch memory(limit.get());
    job.memory = &memory;
    for (u8 level = 2; level <= 7; ++level) {
        job.parameters = test::parameters_of(1, level, 30);
        EXPECT_EQ(m1_encoder.run(job, nullptr).status, codec_status::no_table)
            << "level " << int{level};
    }
}

} // namespace
} // namespace quarnex
