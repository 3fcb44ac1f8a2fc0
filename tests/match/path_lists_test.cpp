#include "match/path_lists.h"

#include "match/list_blocks.h"
#include "match/wide_blocks.h"
#include "plain/plain_lists.h"
#include "support/codec_runs.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::plain_lists;

/// A block followed by zeros.
class padded_block {
  public:
    explicit padded_block(const bytes& block)
        : buffer_(test::exact_buffer(block.size() + search_reads_past)),
          size_(static_cast<u32>(block.size()))
    {
        std::copy(block.begin(), block.end(), buffer_.get());
    }
    block_text text() const { return {buffer_.get(), size_}; }

  private:
    std::unique_ptr<u8[]> buffer_;
    u32 size_;
};

/// Positions of 0 where there is no match.
plain_lists without_unused(plain_lists lists)
{
    for (usize pos = 0; pos < lists.len.size(); ++pos)
        if (lists.len[pos] == 0) lists.pos[pos] = 0;
    return lists;
}

plain_lists lists_of_paths(const bytes& block)
{
    const padded_block padded(block);
    const u32 size = padded.text().size;
    suffix_arrays arrays;
    EXPECT_TRUE(arrays.allocate(size, true, system_allocator));
    EXPECT_TRUE(arrays.sort(padded.text(), match_list_scale));
    const auto lists = path_match_lists(padded.text(), arrays, system_allocator);
    return without_unused(
        {{lists.mlen.get(), lists.mlen.get() + size}, {lists.mpos.get(), lists.mpos.get() + size}});
}

plain_lists lists_of_merging(const bytes& block)
{
    const padded_block padded(block);
    const u32 size = padded.text().size;
    suffix_arrays arrays;
    EXPECT_TRUE(arrays.allocate(size, false, system_allocator));
    EXPECT_TRUE(arrays.sort(padded.text(), match_list_scale));
    std::vector<u8> mlen(size, 0);
    std::vector<u32> mpos(size, 0);
    sa_match_lists(arrays.sa, size, arrays.lcp, mpos.data(), mlen.data());
    return without_unused({{mlen.begin(), mlen.end()}, mpos});
}

void expect_same_lists(const bytes& block, const std::string& name)
{
    const plain_lists paths = lists_of_paths(block);
    const plain_lists merged = lists_of_merging(block);
    ASSERT_TRUE(paths.len == merged.len && paths.pos == merged.pos)
        << block.size() << " bytes of " << name;
}

void expect_plain_lists(const bytes& block, const std::string& name)
{
    ASSERT_NO_FATAL_FAILURE(expect_same_lists(block, name));
    const plain_lists paths = lists_of_paths(block);
    const plain_lists plain = test::plain_match_lists(block);
    ASSERT_TRUE(paths.len == plain.len && paths.pos == plain.pos)
        << block.size() << " bytes of " << name;
}

TEST(path_lists, equal_the_plain_ones_for_all_shapes_and_sizes_up_to_300)
{
    test::for_short_blocks(expect_plain_lists);
}

TEST(path_lists, equal_the_plain_ones_for_thousands_of_small_blocks)
{
    test::for_blocks_of_few_symbols(expect_plain_lists);
}

TEST(path_lists, equal_the_plain_ones_for_larger_blocks_of_all_shapes)
{
    test::for_longer_blocks(expect_plain_lists);
}

TEST(path_lists, equal_those_of_merging_for_large_blocks_of_all_shapes)
{
    for (const auto& shape : test::all_shapes())
        ASSERT_NO_FATAL_FAILURE(expect_same_lists(shape.make(300000, 3), shape.name));
}

TEST(path_lists, equal_the_plain_ones_for_large_intervals_inside_each_other)
{
    // Intervals of more than 16384 members, of many lengths.
    for (const char* name : {"two_symbols", "fibonacci", "thue_morse", "runs"})
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(test::find_shape(name).make(100000, 3), name));
    for (const u32 size : {16384U, 16386U, 16387U, 16639U, 16640U, 40000U})
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(bytes(size), "zeros"));
    for (const u32 period : {1U, 2U, 3U, 5U}) {
        test::random_source random(period);
        bytes block = test::find_shape("random").make(period, period);
        while (block.size() < 90000) {
            const u8 byte = block[block.size() - period];
            block.push_back(random.below(200) == 0 ? static_cast<u8>(byte + 1) : byte);
        }
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "a period with errors"));
    }
}

TEST(path_lists, equal_the_plain_ones_around_16384_members)
{
    // Copies of "abc"; the bytes after it vary, so that there are intervals inside.
    for (const u32 copies : {16383U, 16384U, 16385U, 16386U}) {
        test::random_source random(copies);
        bytes block;
        for (u32 k = 0; k < copies; ++k) {
            const u32 own = random.below(4) == 0 ? random.below(1000) : k;
            block.insert(block.end(), {'a', 'b', 'c', static_cast<u8>(own | 0x80),
                                       static_cast<u8>(own >> 7), static_cast<u8>(own >> 7 >> 8)});
        }
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "copies"));
    }
}

TEST(path_lists, hold_lengths_around_128_and_255)
{
    const bytes part = test::find_shape("random").make(400, 4);
    for (const u32 len : {3U, 4U, 126U, 127U, 128U, 129U, 191U, 192U, 254U, 255U, 256U, 300U}) {
        const bytes copy(part.begin(), part.begin() + len);
        const bytes block = test::joined({part, copy, {static_cast<u8>(part[len] + 1)}, part});
        const plain_lists lists = lists_of_paths(block);
        EXPECT_EQ(lists.len[400], std::min(len, 255U));
        EXPECT_EQ(lists.pos[400], 0U);
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "lengths"));
    }
}

TEST(path_lists, equal_the_plain_ones_for_long_repeats)
{
    for (const u32 period : {120U, 127U, 128U, 129U, 254U, 255U, 256U, 300U, 5000U}) {
        bytes block = test::find_shape("random").make(period, period);
        while (block.size() < 12000) block.push_back(block[block.size() - period]);
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "a period"));
    }
    for (u64 seed = 1; seed <= 60; ++seed)
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(test::forked_keys(20, seed), "forked keys"));
    for (const u32 depth : {1U, 2U, 3U, 4U, 255U})
        ASSERT_NO_FATAL_FAILURE(
            expect_plain_lists(test::wide_branch(depth, 256, 600, true, 1), "a wide branch"));
}

TEST(path_lists, need_no_memory_but_the_arrays)
{
    const padded_block padded(test::find_shape("text").make(3000, 1));
    test::limited_allocator memory;
    {
        suffix_arrays arrays;
        ASSERT_TRUE(arrays.allocate(3000, true, memory.get()));
        ASSERT_TRUE(arrays.sort(padded.text(), match_list_scale));
        memory.refuse_from(0);
        const match_lists lists = path_match_lists(padded.text(), arrays, memory.get());
        EXPECT_TRUE(lists.mlen && lists.mpos);
    }
    EXPECT_EQ(memory.in_use(), 0U);
}

} // namespace
} // namespace quarnex
