// What the encoders of all methods have in common.
#include "pipeline/encoders_fixture.h"

namespace quarnex {
namespace {

using test::bytes;
using test::encode;
using test::encoders;
using test::run_encoder;

constexpr u8 levels = 10;

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
