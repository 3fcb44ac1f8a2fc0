#include "match/match_lists.h"

#include "match/list_blocks.h"
#include "plain/plain_lists.h"
#include "support/codec_runs.h"
#include "support/limited_allocator.h"

#include <algorithm>
#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;

/// The lists of a block, with a position of 0 where there is no match.
test::plain_lists lists_of(const bytes& block)
{
    const auto size = static_cast<u32>(block.size());
    const auto text = test::exact_buffer(block.size() + search_reads_past);
    std::copy(block.begin(), block.end(), text.get());
    const auto lists = find_match_lists({text.get(), size}, system_allocator);
    if (!lists) return {};
    test::plain_lists found{{lists->mlen.get(), lists->mlen.get() + size},
                            {lists->mpos.get(), lists->mpos.get() + size}};
    for (u32 pos = 0; pos < size; ++pos)
        if (found.len[pos] == 0) found.pos[pos] = 0;
    return found;
}

void expect_plain_lists(const bytes& block, const std::string& name)
{
    const test::plain_lists found = lists_of(block);
    const test::plain_lists plain = test::plain_match_lists(block);
    ASSERT_TRUE(found.len == plain.len && found.pos == plain.pos)
        << block.size() << " bytes of " << name;
}

/// Number of positions without a match.
usize unmatched(const test::plain_lists& lists)
{
    return static_cast<usize>(std::count(lists.len.begin(), lists.len.end(), 0U));
}

// Small cases

TEST(match_lists, of_1_byte_have_no_match)
{
    EXPECT_EQ(lists_of({7}).len, std::vector<u32>{0});
}

TEST(match_lists, have_matches_of_3_bytes_and_none_of_2)
{
    EXPECT_EQ(lists_of(bytes_of("ab1ab2")).len, std::vector<u32>(6, 0));
    EXPECT_EQ(lists_of(bytes_of("abc1abc2")).len, (std::vector<u32>{0, 0, 0, 0, 3, 0, 0, 0}));
    EXPECT_EQ(lists_of(bytes_of("abc1abc2")).pos[4], 0U);
}

TEST(match_lists, never_hold_a_match_for_position_0)
{
    for (const auto& shape : test::all_shapes())
        EXPECT_EQ(lists_of(shape.make(1000, 1)).len[0], 0U) << shape.name;
}

TEST(match_lists, hold_the_nearest_of_the_longest_matches)
{
    // At 16 the nearest earlier "abcd" is at 8; at 17 "bcd" is at 13.
    const auto lists = lists_of(bytes_of("abcd----abcd1bcdabcdX"));
    EXPECT_EQ(lists.len[16], 4U);
    EXPECT_EQ(lists.pos[16], 8U);
    EXPECT_EQ(lists.len[17], 3U);
    EXPECT_EQ(lists.pos[17], 13U);
}

/// A block where the last "abcde" matches `far` back in all its bytes, and `near` back in its first
/// `len`.
bytes near_and_far(u32 len, u32 near, u32 far)
{
    // No other three bytes occur twice.
    bytes block(far + 6);
    for (u32 i = 0; i < block.size(); ++i) {
        const u32 digit = i / 3;
        block[i] = i % 3 == 0 ? u8{0xFF} : static_cast<u8>(i % 3 == 1 ? digit % 90 : digit / 90);
    }
    const bytes needle = bytes_of("abcde");
    std::copy(needle.begin(), needle.end(), block.begin());
    std::copy_n(needle.begin(), len, block.begin() + static_cast<i64>(far - near));
    block[far - near + len] = 'x';
    std::copy(needle.begin(), needle.end(), block.begin() + static_cast<i64>(far));
    return block;
}

/// The match at the last "abcde".
std::pair<u32, u32> last_match(u32 len, u32 near, u32 far)
{
    const bytes block = near_and_far(len, near, far);
    const auto lists = lists_of(block);
    const test::plain_lists plain = test::plain_match_lists(block);
    EXPECT_EQ(lists.len, plain.len);
    EXPECT_EQ(lists.pos, plain.pos);
    return {lists.len[far], far - lists.pos[far]};
}

TEST(match_lists, prefer_a_match_one_byte_shorter_if_more_than_32_times_nearer)
{
    using match = std::pair<u32, u32>;
    // 1280 >> 5 is 40, and 1311 >> 5 too.
    EXPECT_EQ(last_match(4, 39, 1280), (match{4, 39}));
    EXPECT_EQ(last_match(4, 40, 1280), (match{5, 1280}));
    EXPECT_EQ(last_match(4, 39, 1279), (match{5, 1279}));
    EXPECT_EQ(last_match(4, 40, 1311), (match{5, 1311}));
    EXPECT_EQ(last_match(4, 40, 1312), (match{4, 40}));
}

TEST(match_lists, prefer_a_match_two_bytes_shorter_if_more_than_512_times_nearer)
{
    using match = std::pair<u32, u32>;
    EXPECT_EQ(last_match(3, 19, 20 * 512), (match{3, 19}));
    EXPECT_EQ(last_match(3, 20, 20 * 512), (match{5, 20 * 512}));
    EXPECT_EQ(last_match(3, 20, 21 * 512 - 1), (match{5, 21 * 512 - 1}));
    EXPECT_EQ(last_match(3, 20, 21 * 512), (match{3, 20}));
}

TEST(match_lists, never_prefer_a_match_three_bytes_shorter)
{
    // "abcdef" 20000 back, "abc" 6 back.
    bytes block = near_and_far(3, 6, 20000);
    block[5] = 'f';
    block[20005] = 'f';
    const auto lists = lists_of(block);
    EXPECT_EQ(lists.len[20000], 6U);
    EXPECT_EQ(lists.pos[20000], 0U);
}

TEST(match_lists, never_hold_a_match_above_255_bytes)
{
    // A part of 2000 bytes, twice.
    const bytes part = test::find_shape("random").make(2000, 1);
    const auto lists = lists_of(test::joined({part, part}));
    for (u32 pos = 0; pos + 3 <= 2000; ++pos) {
        ASSERT_EQ(lists.len[2000 + pos], std::min(255U, 2000 - pos));
        ASSERT_EQ(lists.pos[2000 + pos], pos);
    }
}

// All bytes equal

TEST(match_lists, of_equal_bytes_have_distance_1_in_a_small_block)
{
    const auto lists = lists_of(bytes(1000));
    for (u32 pos = 1; pos + 3 <= 1000; ++pos) {
        ASSERT_EQ(lists.len[pos], std::min(255U, 1000 - pos)) << pos;
        ASSERT_EQ(lists.pos[pos], pos - 1);
    }
    EXPECT_EQ(unmatched(lists), 3U); // the first and the last two
}

TEST(match_lists, of_equal_bytes_are_complete_despite_large_intervals)
{
    for (const u32 size : {16384U, 16638U, 16639U, 16640U, 20000U, 70000U}) {
        const bytes block(size);
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "zeros"));
        EXPECT_EQ(unmatched(lists_of(block)), 3U); // the first and the last two
    }
}

TEST(match_lists, of_large_intervals_only_gather_positions_without_a_match)
{
    // 16384 or 16385 copies of "abc", each followed by bytes of its own, except that the first and
    // the last but one continue alike.  In the larger interval that one is not offered the nearer
    // copy before it, and is not offered to the copy after it.
    for (const u32 copies : {16384U, 16385U}) {
        bytes block;
        for (u32 i = 0; i < copies; ++i) {
            const u32 own = i == copies - 2 ? 0 : i;
            block.insert(block.end(), {'a', 'b', 'c', static_cast<u8>(own | 0x80),
                                       static_cast<u8>(own >> 7), static_cast<u8>(own >> 7 >> 8)});
        }
        const auto lists = lists_of(block);
        const auto plain = test::plain_match_lists(block);
        ASSERT_EQ(lists.len, plain.len) << copies;
        ASSERT_EQ(lists.pos, plain.pos) << copies;
    }
}

TEST(match_lists, count_the_members_of_an_interval_that_inner_ones_closed)
{
    // 16384 or 16385 copies of "abc"; "abcd" is at 0 and at the last but one.
    for (const bool huge : {false, true}) {
        const u32 copies = huge ? 16385 : 16384;
        bytes block;
        for (u32 i = 0; i < copies; ++i) {
            const bool twin = i == 0 || i == copies - 2;
            const u8 next = twin ? 'd' : static_cast<u8>('e' + i % 2);
            block.insert(block.end(), {'a', 'b', 'c', next});
        }
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "copies"));
    }
}

// Any blocks

TEST(match_lists, equal_the_plain_ones_for_all_shapes_and_sizes_up_to_300)
{
    test::for_short_blocks(expect_plain_lists);
}

TEST(match_lists, equal_the_plain_ones_for_thousands_of_small_blocks)
{
    test::for_blocks_of_few_symbols(expect_plain_lists);
}

TEST(match_lists, equal_the_plain_ones_for_larger_blocks_of_all_shapes)
{
    test::for_longer_blocks(expect_plain_lists);
}

TEST(match_lists, equal_the_plain_ones_for_two_symbols_with_large_intervals)
{
    for (const char* name : {"two_symbols", "fibonacci", "thue_morse"})
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(test::find_shape(name).make(100000, 3), name));
}

TEST(match_lists, equal_the_plain_ones_for_periods)
{
    for (const u32 period : {1U, 2U, 3U, 254U, 255U, 256U, 300U, 5000U}) {
        bytes block = test::find_shape("random").make(period, period);
        while (block.size() < 40000) block.push_back(block[block.size() - period]);
        ASSERT_NO_FATAL_FAILURE(expect_plain_lists(block, "period " + std::to_string(period)));
    }
}

// Lists of a given suffix array

TEST(sa_match_lists, uses_the_lcp_array_as_given)
{
    // Of "abcab...": positions 0, 3 and 6 share three bytes, 3 and 6 share four.
    std::vector<u32> sa{6, 3, 0};
    const std::array<u8, 4> lcp{0, 4, 3, 0};
    std::array<u8, 7> mlen{};
    std::array<u32, 7> mpos{};
    sa_match_lists(sa.data(), 3, lcp.data(), mpos.data(), mlen.data());
    EXPECT_EQ(mlen, (std::array<u8, 7>{0, 0, 0, 3, 0, 0, 4}));
    EXPECT_EQ(mpos, (std::array<u32, 7>{0, 0, 0, 0, 0, 0, 3}));
}

TEST(sa_match_lists, ignores_an_interval_of_2_bytes)
{
    std::vector<u32> sa{6, 3, 0};
    const std::array<u8, 4> lcp{0, 2, 1, 0};
    std::array<u8, 7> mlen{};
    std::array<u32, 7> mpos{};
    sa_match_lists(sa.data(), 3, lcp.data(), mpos.data(), mlen.data());
    EXPECT_EQ(mlen, (std::array<u8, 7>{}));
}

// Sorting

void expect_sorted(std::vector<u32> numbers)
{
    std::vector<u32> expected = numbers;
    std::sort(expected.begin(), expected.end());
    sort_u32(numbers.data(), numbers.size());
    EXPECT_EQ(numbers, expected);
}

TEST(sort_u32, of_no_element_or_one)
{
    sort_u32(nullptr, 0);
    expect_sorted({5});
}

TEST(sort_u32, of_two_elements)
{
    expect_sorted({1, 2});
    expect_sorted({2, 1});
    expect_sorted({2, 2});
}

TEST(sort_u32, of_all_orders_of_few_elements)
{
    std::vector<u32> numbers{0, 1, 1, 7, 0x80000000, 0xFFFFFFFF};
    do expect_sorted(numbers);
    while (std::next_permutation(numbers.begin(), numbers.end()));
}

TEST(sort_u32, of_ascending_descending_and_constant_elements)
{
    for (const u32 count : {3U, 50U, 51U, 1000U, 20000U}) {
        std::vector<u32> numbers(count);
        std::iota(numbers.begin(), numbers.end(), 0xFFFF0000U);
        expect_sorted(numbers);
        std::rotate(numbers.begin(), numbers.begin() + 1, numbers.end());
        expect_sorted(numbers);
        std::sort(numbers.begin(), numbers.end(), std::greater<>());
        expect_sorted(numbers);
        numbers.back() = 0xFFFFFFFF; // descending except the last one
        expect_sorted(numbers);
        expect_sorted(std::vector<u32>(count, 7));
    }
}

TEST(sort_u32, of_random_elements_and_few_values)
{
    test::random_source random(1);
    for (u32 count = 3; count < 40000; count += 1 + count / 3) {
        for (const u32 mask : {0xFFFFFFFFU, 0xFFU, 1U}) {
            std::vector<u32> numbers(count);
            for (u32& number : numbers) number = random.next() & mask;
            expect_sorted(numbers);
        }
    }
}

// Without memory

/// A shape whose lists come from the tree or from merging intervals, and the number of allocations
/// for a block of 1000 bytes.
struct list_source {
    const char* shape;
    u64 calls;
};
constexpr std::array list_sources{list_source{"text", 3}, list_source{"zeros", 2}};

TEST(match_lists, do_not_exist_without_memory_for_each_of_their_arrays)
{
    for (const auto& [shape, calls] : list_sources) {
        const bytes block =
            test::joined({test::find_shape(shape).make(1000, 1), bytes(search_reads_past)});
        for (u64 refused = 1; refused <= calls; ++refused) {
            test::limited_allocator memory;
            memory.refuse_call(refused);
            EXPECT_FALSE(find_match_lists({block.data(), 1000}, memory.get())) << shape << refused;
            EXPECT_EQ(memory.in_use(), 0U) << shape << refused;
        }
    }
}

TEST(match_lists, are_merged_in_memory_too_small_for_a_tree)
{
    const bytes block =
        test::joined({test::find_shape("text").make(200000, 1), bytes(search_reads_past)});
    const auto expected = find_match_lists({block.data(), 200000}, system_allocator);
    ASSERT_TRUE(expected);
    for (const usize bytes_per_position : {10U, 11U, 12U}) {
        test::limited_allocator memory;
        memory.refuse_above(bytes_per_position * 200000 + 128);
        const auto lists = find_match_lists({block.data(), 200000}, memory.get());
        ASSERT_TRUE(lists) << bytes_per_position;
        for (u32 pos = 0; pos < 200000; ++pos) {
            ASSERT_EQ(lists->mlen[pos], expected->mlen[pos]);
            ASSERT_TRUE(lists->mlen[pos] == 0 || lists->mpos[pos] == expected->mpos[pos]);
        }
    }
}

TEST(match_lists, take_no_more_memory_than_announced)
{
    for (const auto& [shape, calls] : list_sources) {
        for (const u32 size : {1U, 100U, 100000U, 200000U}) {
            const bytes block =
                test::joined({test::find_shape(shape).make(size, 1), bytes(search_reads_past)});
            test::limited_allocator memory;
            {
                const auto lists = find_match_lists({block.data(), size}, memory.get());
                ASSERT_TRUE(lists);
                EXPECT_LE(memory.bytes_in_use(), match_list_memory(size));
            }
            usize total = 0; // never released before the end
            for (const auto& call : memory.allocated()) total += call.size;
            EXPECT_LE(total, match_list_memory(size)) << shape;
            EXPECT_EQ(memory.in_use(), 0U);
        }
    }
}

} // namespace
} // namespace quarnex
