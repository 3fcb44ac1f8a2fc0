// The levels that choose by price, where memory is short, in all methods.
#include "match/ladder.h"

#include "support/codec_runs.h"
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

    codec_parameters parameters(u8 level) const
    {
        return test::parameters_of(static_cast<u8>(GetParam()), level);
    }

    /// What an encoder makes of a block while only `spare` bytes more can be had.
    test::codec_run run_short_of_memory(const bytes& block, u8 level, u64 spare) const
    {
        bytes in = block;
        in.resize(block.size() + in_slack);
        bytes out(block.size() + out_slack);
        scratch memory(system_allocator);
        codec_job job;
        job.memory = &memory;
        job.parameters = parameters(level);
        job.in_buf = in.data();
        job.in_len = static_cast<u32>(block.size());
        job.out_buf = out.data();
        const codec_entry& codec = *encoder_table[job.parameters.method];
        void* const state = codec.init(job);
        const codec_result result = [&] {
            const test::short_of_memory limit(spare);
            return codec.run(job, state);
        }();
        codec.release(job, state);
        out.resize(result.length);
        return {result, out};
    }
};

INSTANTIATE_TEST_SUITE_P(method, priced_levels, testing::Range(1, 6),
                         testing::PrintToStringParamName());

TEST_P(priced_levels, level_8_without_memory_for_its_lists_fails)
{
    // Suffix array, common prefixes and lists take ten times the block.
    const bytes block(8 << 20);
    for (const u64 mib : {0U, 20U, 35U, 60U}) {
        EXPECT_EQ(run_short_of_memory(block, 8, mib << 20).result.status, codec_status::no_lists)
            << mib;
    }
}

TEST_P(priced_levels, level_9_with_little_memory_makes_a_longer_stream_of_the_same_block)
{
    const bytes block = test::find_shape("text").make(400000, 1);
    const usize best = test::encode(block, parameters(9)).size();
    for (const u64 mib : {0U, 3U, 5U}) {
        const test::codec_run run = run_short_of_memory(block, 9, mib << 20);
        ASSERT_GT(run.result.length, 0U) << mib;
        EXPECT_GT(run.out.size(), best) << mib;
        if (run.out.size() == block.size()) {
            EXPECT_TRUE(run.out == block);
            EXPECT_EQ(mib, 0U);
        } else {
            EXPECT_TRUE(test::decode(run.out, block.size(), parameters(9)) == block) << mib;
        }
    }
}

} // namespace
} // namespace quarnex
