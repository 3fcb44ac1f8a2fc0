// The levels that choose by price, where memory is short, in all methods.
#include "match/ladder.h"

#include "support/codec_runs.h"
#include "support/error_recorder.h"
#include "support/limits.h"
#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// By method.
class priced_levels : public testing::TestWithParam<int> {
  protected:
    void SetUp() override
    {
        if (test::under_sanitizer)
            GTEST_SKIP() << "a sanitizer's shadow needs more than a limit allows";
    }

    file_parameters parameters(u8 level) const
    {
        return test::parameters_of(static_cast<u8>(GetParam()), level);
    }

    /// What an encoder makes of a block while only `spare` bytes more can be had.
    test::codec_run run_short_of_memory(const bytes& block, u8 level, u64 spare) const
    {
        bytes in = block;
        in.resize(block.size() + in_slack);
        bytes out(block.size() + out_slack);
        block_job job;
        job.parameters = parameters(level);
        job.in_buf = in.data();
        job.in_len = static_cast<u32>(block.size());
        job.out_buf = out.data();
        const codec_entry& codec = *encoder_table[job.parameters.method];
        void* const state = codec.init(job);
        const i32 result = [&] {
            const test::short_of_memory limit(spare);
            return codec.run(job, state);
        }();
        codec.release(job, state);
        if (result > 0) out.resize(static_cast<usize>(result));
        return {result, out};
    }
};

INSTANTIATE_TEST_SUITE_P(method, priced_levels, testing::Range(1, 6),
                         testing::PrintToStringParamName());

TEST_P(priced_levels, level_8_without_memory_for_its_lists_reports_code_100)
{
    // Suffix array, common prefixes and lists take ten times the block.
    const bytes block(8 << 20);
    for (const u64 mib : {0U, 20U, 35U, 60U}) {
        test::error_recorder errors;
        EXPECT_EQ(run_short_of_memory(block, 8, mib << 20).result, -100) << mib;
        EXPECT_EQ(errors.take(), std::vector{test::no_memory_failure}) << mib;
    }
}

TEST_P(priced_levels, level_9_with_little_memory_makes_a_longer_stream_of_the_same_block)
{
    const bytes block = test::find_shape("text").make(400000, 1);
    const usize best = test::encode(block, parameters(9)).size();
    test::error_recorder errors;
    for (const u64 mib : {0U, 3U, 5U}) {
        const test::codec_run run = run_short_of_memory(block, 9, mib << 20);
        ASSERT_GT(run.result, 0) << mib;
        EXPECT_GT(run.out.size(), best) << mib;
        if (run.out.size() == block.size()) {
            EXPECT_TRUE(run.out == block);
            EXPECT_EQ(mib, 0U);
        } else {
            EXPECT_TRUE(test::decode(run.out, block.size(), parameters(9)) == block) << mib;
        }
    }
    EXPECT_TRUE(errors.take().empty());
}

} // namespace
} // namespace quarnex
