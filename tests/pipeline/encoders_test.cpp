// What the encoders of all methods have in common.
#include "support/codec_runs.h"
#include "support/scoped_limits.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::encode;
using test::parameters_of;
using test::run_encoder;

constexpr u8 levels = 8; // that are built

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

TEST_P(encoders, levels_that_are_not_built_fail)
{
    for (const u8 level : {u8{8}, u8{9}})
        EXPECT_EQ(run_encoder(bytes(100), parameters(level)).result, -1);
}

TEST_P(encoders, without_memory_for_its_table_each_level_fails)
{
    for (u8 level = 0; level < levels; ++level) {
        const file_parameters huge = parameters(level, 30); // 4 GiB
        const test::short_of_memory limit;
        EXPECT_EQ(run_encoder(bytes(100), huge).result, -1) << int{level};
    }
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
