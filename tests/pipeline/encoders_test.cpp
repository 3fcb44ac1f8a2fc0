// Tests what the encoders of all methods have in common.
#include "pipeline/encoders_fixture.h"
#include "support/limited_allocator.h"

namespace quarnex {
namespace {

using test::bytes;
using test::encode;
using test::encoders;
using test::run_encoder;

constexpr u8 levels = 10;

INSTANTIATE_TEST_SUITE_P(method, encoders, testing::Range(1, 6), testing::PrintToStringParamName());

TEST_P(encoders, an_in_len_of_0_returns_0)
{
    for (u8 level = 0; level < levels; ++level)
        EXPECT_EQ(run_encoder({}, parameters(level)).result.length, 0U);
}

TEST_P(encoders, incompressible_data_is_returned_as_the_raw_block)
{
    const bytes block = test::find_shape("random").make(5000, 1);
    for (u8 level = 0; level < levels; ++level) {
        const auto run = run_encoder(block, parameters(level));
        EXPECT_EQ(run.result.length, 5000U);
        EXPECT_EQ(run.out, block);
    }
}

TEST_P(encoders, a_level_above_9_uses_the_bucket_search)
{
    const bytes block = test::find_shape("text").make(5000, 1);
    codec_parameters chosen = parameters(5);
    const bytes expected = encode(block, chosen);
    for (const u8 level : {u8{10}, u8{255}}) {
        chosen.level = level;
        EXPECT_EQ(encode(block, chosen), expected);
    }
}

constexpr u8 levels_with_tables = 8;

TEST_P(encoders, each_level_up_to_7_fails_without_memory_for_its_table)
{
    test::limited_allocator memory;
    memory.refuse_from(usize{1} << 30);
    for (u8 level = 0; level < levels_with_tables; ++level) {
        const auto run = run_encoder(bytes(100), parameters(level, 30), memory.get());
        EXPECT_EQ(run.result.status, codec_status::no_table) << int{level};
    }
    EXPECT_EQ(memory.in_use(), 0U);
}

TEST_P(encoders, level_8_fails_without_memory_for_its_match_lists)
{
    const bytes block = test::find_shape("text").make(2000, 1);
    bool has_lists = false;
    u32 failures = 0;
    for (u64 call = 1; !has_lists; ++call) {
        test::limited_allocator memory;
        memory.refuse_call(call);
        const auto run = run_encoder(block, parameters(8), memory.get());
        EXPECT_EQ(memory.in_use(), 0U);
        has_lists = call > memory.calls();
        if (run.result.status == codec_status::no_lists) ++failures;
    }
    EXPECT_EQ(failures, 4U) << "suffix array, LCP array and two lists";
}

TEST_P(encoders, free_all_memory_except_the_table_in_the_scratch)
{
    const bytes block = test::find_shape("text").make(20000, 1);
    for (u8 level = 0; level < levels; ++level) {
        test::limited_allocator memory;
        run_encoder(block, parameters(level), memory.get());
        EXPECT_EQ(memory.in_use(), 0U) << int{level};
        EXPECT_EQ(memory.bytes_in_use(), 0U) << int{level};
    }
}

} // namespace
} // namespace quarnex
