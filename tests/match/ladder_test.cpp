// Levels 8 and 9 of all methods when memory runs out.
#include "match/ladder.h"

#include "support/codec_runs.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::limited_allocator;

/// By method.
class priced_levels : public testing::TestWithParam<int> {
  protected:
    codec_parameters parameters(u8 level) const
    {
        return test::parameters_of(static_cast<u8>(GetParam()), level);
    }

    /// Encodes a block and expects all memory to be released.
    test::codec_run encode(const bytes& block, u8 level, limited_allocator& memory) const
    {
        test::codec_run run = test::run_encoder(block, parameters(level), memory.get());
        EXPECT_EQ(memory.in_use(), 0U);
        EXPECT_EQ(memory.bytes_in_use(), 0U);
        return run;
    }

    void expect_decodable(const bytes& stream, const bytes& block, u8 level) const
    {
        if (stream.size() == block.size()) {
            EXPECT_TRUE(stream == block);
        } else {
            EXPECT_TRUE(test::decode(stream, block.size(), parameters(level)) == block);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(method, priced_levels, testing::Range(1, 6),
                         testing::PrintToStringParamName());

/// The last allocations of a block at level 8, counted from the end.
enum level_8_allocation : u64 { mpos, mlen, phi, lcp, suffix_array };

TEST_P(priced_levels, level_8_without_memory_for_its_lists_fails)
{
    const bytes block = test::find_shape("text").make(5000, 1);
    limited_allocator unlimited;
    encode(block, 8, unlimited);
    for (const level_8_allocation refused : {mpos, mlen, lcp, suffix_array}) {
        limited_allocator memory;
        memory.refuse_call(unlimited.calls() - refused);
        EXPECT_EQ(encode(block, 8, memory).result.status, codec_status::no_lists) << refused;
    }
}

TEST_P(priced_levels, level_8_without_memory_for_the_phi_array_finds_no_match)
{
    const bytes block = test::find_shape("text").make(5000, 1);
    limited_allocator memory;
    const bytes best = encode(block, 8, memory).out;
    memory.refuse_call(2 * memory.calls() - phi);
    const test::codec_run run = encode(block, 8, memory);
    EXPECT_EQ(run.result.status, codec_status::done);
    EXPECT_GT(run.out.size(), best.size());
    expect_decodable(run.out, block, 8);
}

TEST_P(priced_levels, level_9_with_little_memory_writes_a_longer_correct_stream)
{
    const bytes block = test::find_shape("text").make(400000, 1);
    const usize best = test::encode(block, parameters(9)).size();
    for (const usize mib : {1U, 3U, 5U}) {
        limited_allocator memory;
        memory.refuse_from(mib << 20);
        const test::codec_run run = encode(block, 9, memory);
        EXPECT_EQ(run.result.status, codec_status::done) << mib;
        EXPECT_GT(run.out.size(), best) << mib;
        expect_decodable(run.out, block, 9);
    }
}

} // namespace
} // namespace quarnex
