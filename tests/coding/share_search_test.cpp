#include "coding/share_search.h"

#include "support/shapes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace quarnex {
namespace {

using test::random_source;

/// Cumulative shares from 0 on, with the numbers after them that stop a search.
using shares = std::vector<u16>;

shares with_stop(std::vector<u16> cum)
{
    cum.insert(cum.end(), word_lanes, whole_interval);
    return cum;
}

/// Returns the last symbol that starts at or before `place`, found one by one.
u32 plain_symbol(const shares& cum, u32 place)
{
    u32 symbol = 0;
    while (cum[symbol + 1] <= place) ++symbol;
    return symbol;
}

/// Expects the share of `place` from each start that is not above it, or from some of the starts.
void expect_share(const shares& cum, u32 place, u32 starts_apart = 1)
{
    const u32 symbol = plain_symbol(cum, place);
    for (u32 before = 0; before <= symbol; before += starts_apart) {
        const symbol_share found = find_share(cum.data(), symbol - before, place);
        ASSERT_EQ(found.symbol, symbol) << place << " from " << symbol - before;
        ASSERT_EQ(found.start, cum[symbol]) << place;
        ASSERT_EQ(found.width, cum[symbol + 1U] - cum[symbol]) << place;
    }
}

TEST(load_lanes, the_first_number_is_lowest_in_both_forms)
{
    const u16 numbers[]{0xFFFF, 0x1234, 0x5678, 0x9ABC, 0xDEF0};
    for (const auto load : {load_lanes, load_lanes_portably}) {
        EXPECT_EQ(load(numbers), 0x9ABC'5678'1234'FFFFU);
        EXPECT_EQ(load(numbers + 1), 0xDEF0'9ABC'5678'1234U);
    }
}

TEST(lanes_above, each_lane_by_itself_at_the_edges_of_its_number)
{
    for (u32 lane = 0; lane < word_lanes; ++lane) {
        for (const u32 others : {0U, 1U, 0x7FFFU, 0x8000U}) {
            for (const u32 number : {0U, 1U, 2U, 0x5555U, 0x7FFEU, 0x7FFFU, 0x8000U}) {
                const u64 mask = u64{0xFFFF} << 16 * lane;
                const u64 lanes = (others * every_lane & ~mask) | u64{number} << 16 * lane;
                for (const u32 limit : {0U, 1U, 2U, 0x5554U, 0x5555U, 0x7FFEU, 0x7FFFU}) {
                    const u64 expected = (others > limit ? every_lane << 15 & ~mask : 0) |
                                         (number > limit ? u64{1} << (16 * lane + 15) : 0);
                    ASSERT_EQ(lanes_above(lanes, limit), expected) << number << ' ' << limit;
                }
            }
        }
    }
}

TEST(find_share, every_place_of_the_interval)
{
    // Shares of 1 unit, of some, of half the interval, and of 1 unit at its end.
    const shares cum = with_stop({0, 1, 2, 3, 4, 5, 6, 100, 101, 150, 16534, 16535, 32767, 32768});
    for (u32 place = 0; place < whole_interval; ++place)
        ASSERT_NO_FATAL_FAILURE(expect_share(cum, place));
}

TEST(find_share, a_place_past_the_last_share_gives_the_symbol_after_the_last)
{
    for (u16 symbols = 1; symbols <= 12; ++symbols) {
        shares cum(symbols + 1U);
        for (u16 symbol = 0; symbol <= symbols; ++symbol) cum[symbol] = symbol;
        cum = with_stop(cum);
        for (const u32 place : {symbols + 0U, symbols + 1U, whole_interval - 1}) {
            for (u32 first = 0; first <= symbols; ++first)
                ASSERT_EQ(find_share(cum.data(), first, place).symbol, symbols) << first;
        }
    }
}

TEST(find_share, random_shares_at_their_edges_from_each_start_before_them)
{
    random_source random(1);
    for (u32 round = 0; round < 300; ++round) {
        // Wide shares have narrow ones between them, many in some rounds.
        std::vector<u16> cum{0};
        const u32 symbols = 1 + random.below(288);
        for (u32 symbol = 0; symbol < symbols; ++symbol) {
            const u32 room = whole_interval - cum.back() - (symbols - symbol - 1);
            const u32 widest = 1 + random.below(1 + random.below(round % 2 == 0 ? 8 : 4000));
            cum.push_back(static_cast<u16>(cum.back() + 1 + random.below(std::min(room, widest))));
        }
        ASSERT_LE(cum.back(), whole_interval);
        const shares stopped = with_stop(cum);
        for (u32 symbol = 0; symbol < symbols; ++symbol) {
            const u32 start = stopped[symbol];
            const u32 end = stopped[symbol + 1];
            for (const u32 place : {start, start + random.below(end - start), end - 1})
                ASSERT_NO_FATAL_FAILURE(expect_share(stopped, place, 1 + random.below(9)));
        }
    }
}

TEST(find_share, reads_no_more_than_the_stop)
{
    // Of the exact size: a sanitizer detects a read past the end.
    for (u32 symbols = 1; symbols <= 9; ++symbols) {
        const std::vector<u16> zeros(symbols + 1, 0); // shares of no width: the last one counts
        const shares cum = with_stop(zeros);
        const auto exact = std::make_unique<u16[]>(cum.size());
        std::copy(cum.begin(), cum.end(), exact.get());
        for (u32 first = 0; first <= symbols; ++first)
            EXPECT_EQ(find_share(exact.get(), first, 0).symbol, symbols);
    }
}

} // namespace
} // namespace quarnex
