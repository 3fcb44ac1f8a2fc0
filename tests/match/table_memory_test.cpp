#include "match/table_memory.h"

#include "match/bucket_search.h"
#include "support/limited_allocator.h"
#include "support/shapes.h"
#include "support/token_recorder.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;

constexpr usize count = usize{1} << 20;
constexpr usize positions = 100;

bool is_zero(const table_memory& memory, usize entries)
{
    return std::all_of(memory.get(), memory.get() + entries, [](u32 entry) { return entry == 0; });
}

TEST(table_memory, is_all_zero)
{
    scratch keeper(system_allocator);
    EXPECT_TRUE(is_zero(table_memory(keeper, count, positions), count));
}

/// Uses a table of `count` entries, clears it if `clears`, and returns its address.
const u32* use_table(scratch& keeper, bool clears)
{
    table_memory memory(keeper, count, positions);
    memory.get()[7] = 1;
    if (clears) {
        memory.get()[7] = 0;
        memory.mark_highest(0);
    }
    return memory.get();
}

TEST(table_memory, is_reused_for_a_table_of_the_same_size_and_zeroed)
{
    scratch keeper(system_allocator);
    for (const bool clears : {false, true, false}) {
        const u32* const address = use_table(keeper, clears);
        const table_memory next(keeper, count, positions);
        EXPECT_EQ(next.get(), address);
        EXPECT_TRUE(is_zero(next, count));
    }
}

TEST(table_memory, marked_as_cleared_is_not_cleared_again)
{
    scratch keeper(system_allocator);
    u32* const address = const_cast<u32*>(use_table(keeper, true));
    address[3] = 1;
    EXPECT_EQ(table_memory(keeper, count, positions).get()[3], 1U);
}

TEST(table_memory, of_a_short_block_is_not_reused_where_large_pages_pay)
{
    scratch keeper(system_allocator);
    constexpr usize long_block = count * sizeof(u32);
    u32* const address = const_cast<u32*>(use_table(keeper, true));
    address[3] = 1;
    EXPECT_EQ(table_memory(keeper, count, long_block).get()[3], 0U);
    EXPECT_EQ(table_memory(keeper, count, positions).get()[3], 0U);
}

TEST(table_memory, of_a_long_block_is_reused_for_short_and_long_ones)
{
    scratch keeper(system_allocator);
    constexpr usize long_block = count * sizeof(u32);
    const u32* const address = table_memory(keeper, count, long_block).get();
    EXPECT_EQ(table_memory(keeper, count, positions).get(), address);
    EXPECT_EQ(table_memory(keeper, count, long_block).get(), address);
}

TEST(table_memory, of_another_size_does_not_reuse_what_was_kept)
{
    scratch keeper(system_allocator);
    use_table(keeper, false);
    {
        const table_memory larger(keeper, 2 * count, positions);
        EXPECT_TRUE(is_zero(larger, 2 * count));
        larger.get()[2 * count - 1] = 1;
    }
    EXPECT_TRUE(is_zero(table_memory(keeper, count, positions), count));
}

TEST(table_memory, of_two_tables_at_a_time_is_separate)
{
    scratch keeper(system_allocator);
    use_table(keeper, false);
    const table_memory first(keeper, count, positions);
    const table_memory second(keeper, count, positions);
    EXPECT_NE(first.get(), second.get());
}

TEST(table_memory, is_kept_in_its_scratch_and_freed_with_it)
{
    test::limited_allocator memory;
    {
        scratch keeper(memory.get());
        use_table(keeper, false);
        EXPECT_EQ(memory.in_use(), 1U);
        EXPECT_EQ(memory.bytes_in_use(), count * sizeof(u32));
        scratch other(memory.get());
        use_table(other, false);
        EXPECT_EQ(memory.in_use(), 2U);
    }
    EXPECT_EQ(memory.in_use(), 0U);
}

TEST(table_memory, without_memory_is_false_and_keeps_nothing)
{
    test::limited_allocator memory;
    memory.refuse_from(1);
    scratch keeper(memory.get());
    EXPECT_FALSE(table_memory(keeper, count, positions));
    EXPECT_EQ(keeper.table.count, 0U);
}

TEST(table_memory, is_mostly_zero_after_short_blocks)
{
    scratch keeper(system_allocator);
    const table_memory memory(keeper, count, positions);
    EXPECT_TRUE(memory.is_mostly_zero(count / 160 - 1));
    EXPECT_FALSE(memory.is_mostly_zero(count / 160));
}

/// Uses a table with rising entries, the highest of which is the base plus `highest`.  Returns the
/// base.
u32 use_rising(scratch& keeper, u32 highest)
{
    table_memory memory(keeper, count, positions, table_start::rising);
    memory.get()[7] = memory.base() + highest;
    memory.mark_highest(memory.base() + highest);
    return memory.base();
}

TEST(table_memory, rising_entries_start_above_those_of_earlier_blocks)
{
    scratch keeper(system_allocator);
    EXPECT_EQ(use_rising(keeper, 100), 0U);
    EXPECT_EQ(use_rising(keeper, 50), 100U);
    const table_memory third(keeper, count, positions, table_start::rising);
    EXPECT_EQ(third.base(), 150U);
    EXPECT_EQ(third.get()[7], 150U) << "an entry of the second block stays";
}

TEST(table_memory, rising_entries_are_cleared_for_a_block_that_needs_zeros)
{
    scratch keeper(system_allocator);
    use_rising(keeper, 100);
    const table_memory next(keeper, count, positions);
    EXPECT_EQ(next.base(), 0U);
    EXPECT_TRUE(is_zero(next, count));
}

TEST(table_memory, rising_entries_start_from_zero_after_a_block_that_left_others)
{
    scratch keeper(system_allocator);
    use_table(keeper, false);
    const table_memory next(keeper, count, positions, table_start::rising);
    EXPECT_EQ(next.base(), 0U);
    EXPECT_TRUE(is_zero(next, count));
}

TEST(table_memory, rising_entries_never_overflow)
{
    scratch keeper(system_allocator);
    constexpr u32 last_base = UINT32_MAX - static_cast<u32>(positions) - 1;
    use_rising(keeper, last_base);
    EXPECT_EQ(use_rising(keeper, 1), last_base);
    EXPECT_EQ(use_rising(keeper, 1), 0U) << "the highest position would not fit";
    const table_memory next(keeper, count, positions, table_start::rising);
    EXPECT_EQ(next.base(), 1U);
}

// After a search

template <class Table>
void expect_a_clean_table(i32 chain_bits, usize entries)
{
    const search_bits bits{18, chain_bits};
    for (const test::shape& shape : test::all_shapes()) {
        for (const usize size : {2U, 3U, 5U, 60U, 500U}) {
            const bool fills = size % 2 == 0;
            scratch memory(system_allocator);
            test::tokens_of<1>(search_buckets<Table, test::token_recorder<1>>,
                               shape.make(size, size), bits, memory, fills ? 2 : SIZE_MAX);
            const table_memory left(memory, entries, size);
            EXPECT_TRUE(is_zero(left, entries)) << shape.name << " of " << size << " bytes";
        }
    }
}

TEST(bucket_array, of_pairs_is_all_zero_after_short_blocks)
{
    expect_a_clean_table<pair_table<0>>(1, (usize{1} << 18) + 1);
}

TEST(bucket_array, of_rings_is_all_zero_after_short_blocks)
{
    expect_a_clean_table<ring_table>(2, (usize{1} << 18) + 3);
    expect_a_clean_table<ring_table>(6, (usize{1} << 18) + 63);
}

TEST(bucket_array, is_all_zero_after_a_match_past_the_end)
{
    // The "ab" at 14 is followed by the zeros past the block, and so is found at 0.  Its third
    // position is past the block, with a word of zeros that does not occur in the block.
    const test::bytes block = test::bytes_of("ab\0\0"
                                             "0123456789ab"sv);
    scratch memory(system_allocator);
    const auto tokens = test::tokens_of<1>(search_buckets<ring_table, test::token_recorder<1>>,
                                           block, {18, 2}, memory);
    EXPECT_EQ(tokens.back(), (test::plain_token{4, 14}));
    constexpr usize entries = (usize{1} << 18) + 3;
    EXPECT_TRUE(is_zero(table_memory(memory, entries, block.size()), entries));
}

} // namespace
} // namespace quarnex
