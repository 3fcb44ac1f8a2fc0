// pipeline/block_coder_fixture.h - buffers and scratch for tests of code_block()
#pragma once

#include "pipeline/block_coder.h"
#include "support/limited_allocator.h"
#include "support/pipeline_jobs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

class block_coder : public testing::Test {
  protected:
    block_coder() { source.refuse_from(usize{1} << 31); }

    /// Codes a block, expects success and returns the number of bytes that the codec wrote.
    u32 expect_coded(block_job& job)
    {
        const block_result result = code_block(buffers, memory, job, finished);
        EXPECT_EQ(result.status, block_status::done);
        return result.produced;
    }

    limited_allocator source;
    scratch memory{source.get()};
    buffer_pool buffers{system_allocator, 4};
    write_job finished;
};

} // namespace quarnex::test
