// pipeline/block_coder_fixture.h - where blocks are coded, for tests of that
#pragma once

#include "pipeline/block_coder.h"
#include "support/pipeline_jobs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

class block_coder : public testing::Test {
  protected:
    /// Codes a block, and expects that it is done.  Returns the bytes that its codec has made.
    u32 expect_coded(block_job& job)
    {
        const block_result result = code_block(buffers, memory, job, finished);
        EXPECT_EQ(result.status, block_status::done);
        return result.produced;
    }

    scratch memory{system_allocator};
    buffer_pool buffers{system_allocator, 4};
    write_job finished;
};

} // namespace quarnex::test
