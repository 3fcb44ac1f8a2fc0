#include "method3/m3_sort.h"

#include "plain/m3_plain.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::m3_plain_pair;
using test::m3_plain_pairs;
using test::random_source;
using pairs = std::vector<m3_pair>;

pairs pairs_of(const std::vector<u32>& freqs)
{
    pairs made;
    for (const u32 freq : freqs)
        made.push_back({static_cast<u16>(freq), static_cast<u16>(made.size())});
    return made;
}

m3_plain_pairs plain(const pairs& list)
{
    m3_plain_pairs made;
    for (const m3_pair& pair : list) made.push_back({pair.freq, pair.sym});
    return made;
}

/// The symbols, which pairs_of() numbers from 0, in the order of the pairs.
std::vector<u32> order(const pairs& list)
{
    std::vector<u32> symbols;
    for (const m3_pair& pair : list) symbols.push_back(pair.sym);
    return symbols;
}

bool rises(const pairs& list)
{
    return std::is_sorted(list.begin(), list.end(),
                          [](const m3_pair& a, const m3_pair& b) { return a.freq < b.freq; });
}

/// Frequencies of many patterns.
std::vector<std::vector<u32>> patterns(u32 size, u64 seed)
{
    random_source random(seed);
    std::vector<std::vector<u32>> made;
    const auto make = [&](auto freq) {
        made.emplace_back();
        for (u32 i = 0; i < size; ++i) made.back().push_back(freq(i));
    };
    make([&](u32) { return random.below(65536); });
    make([&](u32) { return 1 + random.below(2); });
    make([&](u32) { return 1 + random.below(5); });
    make([&](u32) { return random.below(1 + random.below(1000)); });
    make([&](u32 i) { return i; });
    make([&](u32 i) { return size - i; });
    make([&](u32 i) { return i / 7; });
    make([&](u32 i) { return i % 16; });                       // sawtooth
    make([&](u32 i) { return std::min(i, size - i); });        // organ pipe
    make([&](u32 i) { return size - std::min(i, size - i); }); // the other way round
    make([&](u32 i) { return i == size / 2 ? 0 : i; });        // almost sorted
    make([&](u32 i) { return i + (random.below(9) == 0 ? 40U : 0U); });
    make([&](u32) { return 7U; });
    return made;
}

// The sort

TEST(m3_sort_pairs, is_the_plain_sort_to_the_last_tie_with_the_same_seed)
{
    random_source random(1);
    usize rose = 0;
    for (u32 size = 0; size <= 400; ++size) {
        for (const auto& freqs : patterns(size, size)) {
            for (const u32 depth : {0U, 1U, 2U, 3U, test::m3_plain_sort_depth(size)}) {
                const u32 seed = depth < 3 ? random.next() : test::m3_plain_sort_seed;
                pairs sorted = pairs_of(freqs);
                m3_plain_pairs expected = plain(sorted);
                const u32 new_seed = m3_sort_pairs(sorted, depth, seed);
                ASSERT_EQ(new_seed, test::m3_plain_sort(expected, depth, seed)) << size;
                ASSERT_EQ(plain(sorted), expected) << size << " at depth " << depth;
                rose += rises(sorted) ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(rose, 401U * 13 * 5);
}

TEST(m3_sort_pairs, an_array_that_already_rises_stays_as_it_is)
{
    for (const u32 size : {31U, 64U, 288U}) {
        for (u32 width = 1; width <= 400; width += 57) {
            std::vector<u32> freqs;
            for (u32 i = 0; i < size; ++i) freqs.push_back(i / width);
            pairs sorted = pairs_of(freqs);
            const std::vector<u32> before = order(sorted);
            EXPECT_EQ(m3_sort_pairs(sorted, 18, 77), 77U);
            EXPECT_EQ(order(sorted), before) << size << ' ' << width;
        }
    }
}

TEST(m3_sort_pairs, small_ranges_start_with_the_first_minimum_and_insert_the_others)
{
    pairs sorted = pairs_of({2, 1, 1});
    EXPECT_EQ(m3_sort_pairs(sorted, 4, 5), 5U); // no seed is used
    EXPECT_EQ(order(sorted), (std::vector<u32>{1, 2, 0}));
    // 1 at the end is swapped with the first 3; the threes don't pass each other.
    sorted = pairs_of({3, 2, 3, 1});
    m3_sort_pairs(sorted, 4, 5);
    EXPECT_EQ(order(sorted), (std::vector<u32>{3, 1, 2, 0}));
    // A first entry that is the minimum already is not swapped.
    sorted = pairs_of({1, 2, 1});
    m3_sort_pairs(sorted, 4, 5);
    EXPECT_EQ(order(sorted), (std::vector<u32>{0, 2, 1}));
}

TEST(m3_sort_pairs, a_range_of_31_is_partitioned_and_one_of_30_is_not)
{
    for (const u32 size : {30U, 31U}) {
        std::vector<u32> freqs;
        for (u32 i = 0; i < size; ++i) freqs.push_back(i * 7 % 31);
        pairs sorted = pairs_of(freqs);
        // 1 * 69069 + 362437 = 431506
        EXPECT_EQ(m3_sort_pairs(sorted, 10, 1), size == 31 ? 431506U : 1U);
        EXPECT_TRUE(rises(sorted));
    }
}

TEST(m3_sort_pairs, a_range_partitioned_depth_times_goes_to_the_heap_sort)
{
    random_source random(5);
    usize differences = 0;
    for (int round = 0; round < 100; ++round) {
        std::vector<u32> freqs;
        for (u32 i = 0; i < 288; ++i) freqs.push_back(1 + random.below(3));
        pairs uncut = pairs_of(freqs);
        pairs by_heap = uncut;
        pairs cut_twice = uncut;
        pairs cut_to_the_end = uncut;
        EXPECT_EQ(m3_sort_pairs(uncut, 0, 99), 99U);
        m3_heap_sort(by_heap);
        EXPECT_EQ(order(uncut), order(by_heap));
        // The order of equal entries shows that the heap sort took over.
        m3_sort_pairs(cut_twice, 2, 99);
        m3_sort_pairs(cut_to_the_end, 1000, 99);
        differences += order(cut_twice) != order(cut_to_the_end) ? 1 : 0;
    }
    EXPECT_GT(differences, 90U);
}

// The heap sort

TEST(m3_heap_sort, entry_0_is_its_own_first_child)
{
    // Of three, 1 is built first: 2 * 1 is the last entry and heavier, so {3, 1, 2} becomes
    // {3, 2, 1}; 3 stays.  3 goes to the end, {1, 2} is sifted to {2, 1}, and 2 goes there too.
    pairs sorted = pairs_of({3, 1, 2});
    m3_heap_sort(sorted);
    EXPECT_EQ(order(sorted), (std::vector<u32>{1, 2, 0}));
    // Nothing is sifted: {0, 1, 2} to {2, 1, 0} to {1, 2, 0}.
    sorted = pairs_of({5, 5, 5});
    m3_heap_sort(sorted);
    EXPECT_EQ(order(sorted), (std::vector<u32>{1, 2, 0}));
}

TEST(m3_heap_sort, is_the_plain_heap_sort_to_the_last_tie)
{
    for (u32 size = 1; size <= 400; ++size) {
        for (const auto& freqs : patterns(size, size)) {
            pairs sorted = pairs_of(freqs);
            m3_plain_pairs expected = plain(sorted);
            m3_heap_sort(sorted);
            test::m3_plain_heap_sort(expected);
            ASSERT_EQ(plain(sorted), expected) << size;
            ASSERT_TRUE(rises(sorted));
        }
    }
}

TEST(m3_heap_sort, nothing_and_one_entry)
{
    m3_heap_sort({});
    pairs one = pairs_of({3});
    m3_heap_sort(one);
    EXPECT_EQ(order(one), (std::vector<u32>{0}));
}

// The order of a rebuild

TEST(m3_order_pairs, equal_counts_are_reversed_and_reversed_back)
{
    pairs equal = pairs_of(std::vector<u32>(288, 1));
    m3_order_pairs(equal);
    for (u32 i = 0; i < 288; ++i) ASSERT_EQ(equal[i].sym, 287 - i);
    m3_order_pairs(equal);
    for (u32 i = 0; i < 288; ++i) ASSERT_EQ(equal[i].sym, i);
}

TEST(m3_order_pairs, a_non_increasing_list_is_reversed)
{
    pairs falling = pairs_of({9, 7, 7, 7, 3, 1, 1});
    m3_order_pairs(falling);
    EXPECT_EQ(order(falling), (std::vector<u32>{6, 5, 4, 3, 2, 1, 0}));
}

TEST(m3_order_pairs, a_non_decreasing_list_stays)
{
    pairs rising = pairs_of({1, 1, 3, 7, 7, 7, 9});
    m3_order_pairs(rising);
    EXPECT_EQ(order(rising), (std::vector<u32>{0, 1, 2, 3, 4, 5, 6}));
}

TEST(m3_order_pairs, sorts_everything_else_with_its_own_depth_and_seed)
{
    for (u32 size = 2; size <= 400; ++size) {
        for (const auto& freqs : patterns(size, size)) {
            pairs sorted = pairs_of(freqs);
            m3_plain_pairs expected = plain(sorted);
            m3_order_pairs(sorted);
            if (std::is_sorted(freqs.rbegin(), freqs.rend()))
                std::reverse(expected.begin(), expected.end());
            else
                test::m3_plain_sort(expected, test::m3_plain_sort_depth(size), 123456789);
            ASSERT_EQ(plain(sorted), expected) << size;
        }
    }
    EXPECT_EQ(test::m3_plain_sort_depth(288), 18U);
}

/// Returns frequencies of which each partition splits off only two: the pivot is second smallest.
std::vector<u32> hard_to_cut(u32 size)
{
    std::vector<u32> freqs;
    std::vector<u32> places; // of the entries after the partitions
    for (u32 i = 0; i < size; ++i) {
        freqs.push_back(1000 + i % 3);
        places.push_back(i);
    }
    u32 seed = test::m3_plain_sort_seed;
    for (u32 value = 1; places.size() > 30; value += 2) {
        seed = seed * 69069 + 362437;
        std::swap(places[0], places[seed % (places.size() - 1)]);
        freqs[places[0]] = value;
        freqs[places[1]] = value + 1; // the median of these two and of the last one, a large one
        places.erase(places.begin(), places.begin() + 2);
    }
    return freqs;
}

TEST(m3_order_pairs, 288_pairs_are_partitioned_18_times_before_the_heap_sort)
{
    const auto sorted_at = [](u32 depth) {
        m3_plain_pairs sorted = plain(pairs_of(hard_to_cut(288)));
        test::m3_plain_sort(sorted, depth, test::m3_plain_sort_seed);
        return sorted;
    };
    pairs sorted = pairs_of(hard_to_cut(288));
    m3_order_pairs(sorted);
    EXPECT_EQ(plain(sorted), sorted_at(18));
    EXPECT_NE(plain(sorted), sorted_at(17));
    EXPECT_NE(plain(sorted), sorted_at(19));
}

TEST(m3_bubble_pass, moves_an_entry_any_distance_up_and_one_place_down)
{
    pairs passed = pairs_of({9, 1, 2, 3, 4});
    m3_bubble_pass(passed);
    EXPECT_EQ(order(passed), (std::vector<u32>{1, 2, 3, 4, 0}));
    passed = pairs_of({5, 6, 7, 8, 1});
    m3_bubble_pass(passed);
    EXPECT_EQ(order(passed), (std::vector<u32>{0, 1, 2, 4, 3}));
    // The entry carried up stops at a heavier one, which is carried on.
    passed = pairs_of({4, 1, 1, 6, 1, 6, 2});
    m3_bubble_pass(passed);
    EXPECT_EQ(order(passed), (std::vector<u32>{1, 2, 0, 4, 3, 6, 5}));
}

TEST(m3_bubble_pass, leaves_equal_entries_alone)
{
    pairs passed = pairs_of({3, 3, 3, 3});
    m3_bubble_pass(passed);
    EXPECT_EQ(order(passed), (std::vector<u32>{0, 1, 2, 3}));
}

} // namespace
} // namespace quarnex
