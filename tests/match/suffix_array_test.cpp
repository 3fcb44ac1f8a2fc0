#include "match/suffix_array.h"

#include "match/lcp_tree.h"
#include "match/match_lists.h"
#include "match/plain_suffixes.h"
#include "support/codec_runs.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// The byte that stands for a common prefix of `len` bytes.
u8 scaled(u32 len, lcp_scale scale)
{
    return static_cast<u8>(len < scale.base ? 0 : std::min(len, scale.longest) - scale.base);
}

/// Expects bytes for all common prefixes, and zeros before and after them.
void expect_scaled(const u8* lcp, const bytes& block, lcp_scale scale, const std::string& name)
{
    const std::vector<u32> shared = test::plain_lcp(block, test::plain_suffix_array(block));
    const auto size = static_cast<u32>(block.size());
    ASSERT_EQ(lcp[0], 0);
    ASSERT_EQ(lcp[size], 0);
    for (u32 k = 1; k < size; ++k)
        ASSERT_EQ(lcp[k], scaled(shared[k], scale)) << name << ' ' << size << ' ' << k;
}

void expect_lcp(const bytes& block, const std::string& name)
{
    const auto sa = test::plain_suffix_array(block);
    const auto text = test::exact_buffer(block.size() + search_reads_past);
    std::copy(block.begin(), block.end(), text.get());
    for (const lcp_scale scale : {match_list_scale, tree_scale, lcp_scale{3, 20}}) {
        bytes lcp(block.size() + 1, 99);
        std::vector<u32> work(block.size());
        lcp_bytes(text.get(), sa.data(), static_cast<u32>(block.size()), scale, work.data(),
                  lcp.data());
        ASSERT_NO_FATAL_FAILURE(expect_scaled(lcp.data(), block, scale, name));
    }
}

TEST(lcp_bytes, equal_those_of_a_direct_comparison)
{
    for (const auto& shape : test::all_shapes()) {
        for (u32 size = 1; size < 100; ++size)
            ASSERT_NO_FATAL_FAILURE(expect_lcp(shape.make(size, size), shape.name));
        ASSERT_NO_FATAL_FAILURE(expect_lcp(shape.make(3000, 1), shape.name));
    }
}

TEST(lcp_bytes, are_capped_at_the_longest_length)
{
    for (const u32 size : {253U, 254U, 255U, 256U, 257U, 258U, 300U}) {
        const bytes part = test::find_shape("random").make(size, 2);
        ASSERT_NO_FATAL_FAILURE(expect_lcp(test::joined({part, {1}, part, {2}}), ""));
        ASSERT_NO_FATAL_FAILURE(expect_lcp(bytes(size), "zeros"));
    }
}

TEST(lcp_bytes, do_not_count_the_zeros_past_the_block)
{
    ASSERT_NO_FATAL_FAILURE(expect_lcp(test::joined({{5}, bytes(9), {5}, bytes(3)}), ""));
}

TEST(suffix_arrays, sort_the_suffixes_of_a_block)
{
    for (const auto& shape : test::all_shapes()) {
        for (const u32 size : {1U, 2U, 31U, 32U, 33U, 5000U}) {
            for (const bool twice : {false, true}) {
                const bytes block = shape.make(size, size);
                const auto text = test::exact_buffer(size + search_reads_past);
                std::copy(block.begin(), block.end(), text.get());
                suffix_arrays arrays;
                ASSERT_TRUE(arrays.allocate(size, twice, system_allocator));
                ASSERT_TRUE(arrays.sort({text.get(), size}, tree_scale));
                const auto sorted = test::plain_suffix_array(block);
                ASSERT_TRUE(std::equal(sorted.begin(), sorted.end(), arrays.sa)) << shape.name;
                ASSERT_NO_FATAL_FAILURE(expect_scaled(arrays.lcp, block, tree_scale, shape.name));
            }
        }
    }
}

TEST(suffix_arrays, have_9_or_12_bytes_per_suffix)
{
    constexpr u32 size = 10000;
    for (const bool twice : {false, true}) {
        test::limited_allocator memory;
        suffix_arrays arrays;
        ASSERT_TRUE(arrays.allocate(size, twice, memory.get()));
        EXPECT_EQ(memory.bytes_in_use(),
                  twice ? 12 * size + 4 * prefetch_padding : 9 * size + 4 * prefetch_padding + 1);
    }
}

TEST(suffix_arrays, are_not_allocated_without_memory_for_each_array)
{
    for (const bool twice : {false, true}) {
        for (u64 refused = 1; refused <= (twice ? 2U : 3U); ++refused) {
            test::limited_allocator memory;
            memory.refuse_call(refused);
            {
                suffix_arrays arrays;
                EXPECT_FALSE(arrays.allocate(100, twice, memory.get())) << refused;
            }
            EXPECT_EQ(memory.in_use(), 0U);
        }
    }
}

} // namespace
} // namespace quarnex
