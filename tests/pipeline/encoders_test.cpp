// What the encoders of all methods have in common.
#include "support/codec_runs.h"
#include "support/error_recorder.h"
#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::encode;
using test::parameters_of;
using test::run_encoder;

constexpr u8 levels = 10;
constexpr u8 levels_with_tables = 8;

/// By method.
class encoders : public testing::TestWithParam<int> {
  protected:
    static file_parameters parameters(u8 level, i32 hash_bits = 12)
    {
        return parameters_of(static_cast<u8>(GetParam()), level, hash_bits);
    }
};

INSTANTIATE_TEST_SUITE_P(method, encoders, testing::Range(1, 6), testing::PrintToStringParamName());

TEST_P(encoders, an_in_len_of_0_gives_the_result_0)
{
    for (u8 level = 0; level < levels; ++level)
        EXPECT_EQ(run_encoder({}, parameters(level)).result, 0);
}

TEST_P(encoders, incompressible_data_come_out_as_the_raw_block)
{
    const bytes block = test::find_shape("random").make(5000, 1);
    for (u8 level = 0; level < levels; ++level) {
        const auto run = run_encoder(block, parameters(level));
        EXPECT_EQ(run.result, 5000);
        EXPECT_EQ(run.out, block);
    }
}

TEST_P(encoders, without_memory_for_its_table_each_level_up_to_7_fails)
{
    for (u8 level = 0; level < levels_with_tables; ++level) {
        const file_parameters huge = parameters(level, 30); // 4 GiB
        const test::short_of_memory limit;
        EXPECT_EQ(run_encoder(bytes(100), huge).result, -1) << int{level};
    }
}

TEST_P(encoders, without_memory_for_its_lists_level_8_reports_failure_100)
{
    test::error_recorder recorder;
    const auto first_bytes = test::exact_buffer(in_slack);
    block_job job;
    job.parameters = parameters(8);
    job.in_buf = first_bytes.get(); // memory runs out before the others are looked at
    job.in_len = u32{1} << 30;
    const test::short_of_memory limit;
    EXPECT_EQ(test::run_codec(*encoder_table[job.parameters.method], job, 1).result, -100);
    EXPECT_EQ(recorder.take(), std::vector{test::no_memory_failure});
}

TEST_P(encoders, a_level_above_9_searches_rings)
{
    const bytes block = test::find_shape("text").make(5000, 1);
    file_parameters chosen = parameters(5);
    const bytes expected = encode(block, chosen);
    for (const u8 level : {u8{10}, u8{255}}) {
        chosen.level = level;
        EXPECT_EQ(encode(block, chosen), expected);
    }
}

} // namespace
} // namespace quarnex
