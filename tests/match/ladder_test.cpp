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

TEST_P(priced_levels, level_8_without_memory_for_its_lists_fails)
{
    // Lists from the tree, which has one more array, and from merging.
    const u64 arrays_of_text = 3, arrays_of_zeros = 2;
    for (const auto& [shape, arrays] :
         {std::pair{"text", arrays_of_text}, {"zeros", arrays_of_zeros}}) {
        const bytes block = test::find_shape(shape).make(5000, 1);
        limited_allocator unlimited;
        encode(block, 8, unlimited);
        for (u64 refused = 0; refused < arrays; ++refused) {
            limited_allocator memory;
            memory.refuse_call(unlimited.calls() - refused);
            EXPECT_EQ(encode(block, 8, memory).result.status, codec_status::no_lists)
                << shape << refused;
        }
    }
}

TEST_P(priced_levels, level_9_with_little_memory_writes_a_longer_correct_stream)
{
    const bytes block = test::find_shape("text").make(400000, 1);
    const usize best = test::encode(block, parameters(9)).size();
    // Not enough for the tree, and little for a trie.
    for (const usize mib : {1U, 2U, 3U}) {
        limited_allocator memory;
        memory.refuse_from(mib << 20);
        const test::codec_run run = encode(block, 9, memory);
        EXPECT_EQ(run.result.status, codec_status::done) << mib;
        EXPECT_GT(run.out.size(), best) << mib;
        expect_decodable(run.out, block, 9);
    }
}

TEST_P(priced_levels, level_9_with_memory_for_a_tree_alone_writes_the_same_stream)
{
    if (sizeof(void*) == sizeof(u32)) GTEST_SKIP() << "has no trees";
    const bytes block = test::find_shape("text").make(400000, 1);
    limited_allocator memory;
    memory.refuse_from(8 * block.size() + 1); // a trie reserves more
    EXPECT_TRUE(encode(block, 9, memory).out == test::encode(block, parameters(9)));
}

} // namespace
} // namespace quarnex
