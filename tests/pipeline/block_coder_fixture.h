// pipeline/block_coder_fixture.h - where blocks are coded, for tests of that
#pragma once

#include "pipeline/block_coder.h"
#include "support/pipeline_jobs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

class block_coder : public testing::Test {
  protected:
    buffer_pool buffers{4};
    write_job finished;
};

} // namespace quarnex::test
