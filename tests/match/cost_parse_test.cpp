#include "match/cost_parse.h"

#include "plain/plain_parse.h"
#include "support/codec_runs.h"
#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::literals;
using test::plain_token;
using test::spelled_out;
using tokens = std::vector<plain_token>;

// Prices

/// Prices as functions.
struct price_functions {
    u32 (*literal)(u32 pos);
    u32 (*match)(u32 pos, u32 len, u32 dist);
};

u32 bits_of(u32 number)
{
    return static_cast<u32>(std::bit_width(number));
}

/// Literals cost 9, matches as in a simple gamma code.
constexpr price_functions simple_prices{
    [](u32) { return 9U; },
    [](u32, u32 len, u32 dist) { return 4 + 2 * bits_of(len) + bits_of(dist); }};

/// Random prices that depend on every argument.
u32 mixed(u32 a, u32 b, u32 c, u32 limit)
{
    const u32 word = (a * 2654435761U ^ b * 40503U ^ c * 2246822519U) * 3266489917U;
    return (word >> 8) % limit;
}
constexpr price_functions wild_prices{
    [](u32 pos) { return 1 + mixed(pos, 1, 2, 40); },
    [](u32 pos, u32 len, u32 dist) { return 1 + mixed(pos, len, dist, 40 * len); }};

/// The same, but some are negative.
constexpr price_functions negative_prices{
    [](u32 pos) { return mixed(pos, 1, 2, 40) - 10; },
    [](u32 pos, u32 len, u32 dist) { return mixed(pos, len, dist, 100) - 60; }};

/// Few values, so that ties are frequent.
constexpr price_functions even_prices{
    [](u32) { return 1U; },
    [](u32 pos, u32 len, u32 dist) { return 2 + mixed(pos, len, dist, 3); }};

/// Prices so high that no path to a window's end costs less than 2^30.
constexpr price_functions high_prices{[](u32) { return 600000U; },
                                      [](u32, u32 len, u32) { return 500000 * len; }};

constexpr std::array all_prices{simple_prices, wild_prices, negative_prices, even_prices,
                                high_prices};

/// Prices for a parse.  `windows` counts its windows.
class test_prices {
  public:
    test_prices(const price_functions& functions, u32& windows)
        : functions_(functions), windows_(windows)
    {
    }

    void start_window() { ++windows_; }
    u32 literal(u32 pos) const { return functions_.literal(pos); }
    /// Runs of 1 to 40 prices, in a buffer that holds no others.
    struct at_distance {
        test_prices& prices;
        u32 pos;
        u32 dist;

        u32 operator()(u32 len) const { return prices.functions_.match(pos, len, dist); }
        price_run run(u32 len) const
        {
            if (len >= tabulated_lengths) return {};
            constexpr u32 common = 0xFFFFF000;
            const u32 count = std::min(1 + mixed(pos, len, dist, 40), tabulated_lengths - len);
            prices.listed_.resize(count);
            for (u32 k = 0; k < count; ++k) prices.listed_[k] = (*this)(len + k) - common;
            return {prices.listed_.data(), count, common};
        }
    };
    at_distance matches(u32 pos, u32 dist) { return {*this, pos, dist}; }

  private:
    std::vector<u32> listed_; // the last run
    price_functions functions_;
    u32& windows_;
};
static_assert(price_list<test_prices>);

// Parses

constexpr u32 any_dist = UINT32_MAX;

/// Limits of a writer.
struct writer_limits {
    u32 max_dist = any_dist;
    usize full_at = SIZE_MAX;
};

struct parse_result {
    tokens found;
    u32 windows = 0; // number of windows
};

/// The tokens of level 8 or 9, from a buffer that ends at the trie's read margin.
template <u32 Level, u32 FirstPos = 1, u32 MinMatch = 3>
parse_result parse(const bytes& block, const price_functions& functions, writer_limits limits = {})
{
    using writer = test::token_recorder<FirstPos, MinMatch>;
    const auto text = test::exact_buffer(block.size() + trie_reads_past);
    std::copy(block.begin(), block.end(), text.get());
    const block_text view{text.get(), static_cast<u32>(block.size()), limits.max_dist};
    parse_result result;
    test_prices prices(functions, result.windows);
    if constexpr (Level == 8)
        result.found =
            parse_backward(view, system_allocator, prices, writer{limits.full_at}).value().tokens;
    else
        result.found = parse_forward(view, system_allocator, prices, writer{limits.full_at}).tokens;
    return result;
}

/// The tokens of the plain parse.
tokens plain_tokens(u32 level, const bytes& block, u32 first_pos, u32 min_match,
                    const price_functions& functions, u32 max_dist = any_dist)
{
    tokens found;
    const test::plain_rules rules{first_pos, false, false, 0, max_dist};
    test::plain_parse(block, rules, level, min_match,
                      {functions.literal, functions.match,
                       [&](u32 /*pos*/, const plain_token& token) { found.push_back(token); }});
    return found;
}

void expect_plain_tokens(const bytes& block, const price_functions& functions,
                         const std::string& name, u32 max_dist = any_dist)
{
    ASSERT_TRUE((parse<8>(block, functions, {max_dist}).found) ==
                plain_tokens(8, block, 1, 3, functions, max_dist))
        << "level 8, " << block.size() << " bytes of " << name;
    ASSERT_TRUE((parse<9>(block, functions, {max_dist}).found) ==
                plain_tokens(9, block, 1, 3, functions, max_dist))
        << "level 9, " << block.size() << " bytes of " << name;
    if (block.size() < 2) return;
    // As in method 5.
    ASSERT_TRUE((parse<8, 2, 3>(block, functions, {max_dist}).found) ==
                plain_tokens(8, block, 2, 3, functions, max_dist))
        << "level 8 from 2, " << block.size() << " bytes of " << name;
    ASSERT_TRUE((parse<9, 2, 2>(block, functions, {max_dist}).found) ==
                plain_tokens(9, block, 2, 2, functions, max_dist))
        << "level 9 from 2, " << block.size() << " bytes of " << name;
}

// Windows

TEST(window_lengths, are_512_1024_2048_and_then_4096)
{
    window_lengths windows;
    for (const u32 length : {512U, 1024U, 2048U, 4096U, 4096U, 4096U})
        EXPECT_EQ(windows.next(100000), length);
    EXPECT_EQ(windows.next(77), 77U);
    EXPECT_EQ(windows.next(1), 1U);
}

TEST(window_lengths, are_cut_at_the_end_of_the_block)
{
    window_lengths windows;
    EXPECT_EQ(windows.next(512), 512U);
    EXPECT_EQ(windows.next(300), 300U);
    EXPECT_EQ(window_lengths().next(1), 1U);
}

TEST(cost_parse, prices_each_window_after_the_previous_one_is_written)
{
    // Without matches, windows end 512, 1536, 3584, 7680 and so on after the first position.
    const bytes block = test::find_shape("random").make(12000, 1);
    const std::pair<u32, u32> sizes[]{{2, 1},    {513, 1},  {514, 2},  {1537, 2}, {1538, 3},
                                      {3585, 3}, {3586, 4}, {7681, 4}, {7682, 5}, {11777, 5}};
    for (const auto& [size, windows] : sizes) {
        const bytes start(block.begin(), block.begin() + size);
        EXPECT_EQ(parse<8>(start, simple_prices).windows, windows) << size;
        EXPECT_EQ(parse<9>(start, simple_prices).windows, windows) << size;
    }
}

TEST(cost_parse, has_no_window_in_a_block_of_raw_bytes)
{
    EXPECT_EQ(parse<8>({7}, simple_prices).windows, 0U);
    EXPECT_EQ(parse<9>({7}, simple_prices).windows, 0U);
    EXPECT_EQ((parse<8, 2>({7, 7}, simple_prices).windows), 0U);
    EXPECT_EQ((parse<9, 2>({7, 7}, simple_prices).windows), 0U);
    EXPECT_TRUE((parse<9, 2>({7}, simple_prices).found.empty()));
}

TEST(cost_parse, a_window_of_length_1_is_a_literal)
{
    EXPECT_EQ(parse<8>({7, 7}, simple_prices).found, spelled_out({literals(1)}));
    EXPECT_EQ(parse<9>({7, 7}, simple_prices).found, spelled_out({literals(1)}));
    // After another window.
    const bytes block = test::find_shape("random").make(514, 1);
    EXPECT_EQ(parse<8>(block, simple_prices).found, spelled_out({literals(513)}));
    EXPECT_EQ(parse<9>(block, simple_prices).found, spelled_out({literals(513)}));
}

/// Appends random bytes up to `size`.
bytes random_up_to(bytes block, usize size)
{
    const bytes noise = test::find_shape("random").make(size, 77);
    block.insert(block.end(), noise.begin() + static_cast<i64>(block.size()), noise.end());
    return block;
}

/// A block of `size` random bytes where exactly `len` bytes at `source` are repeated at `copy`.
bytes with_copy(usize size, u32 source, u32 copy, u32 len)
{
    bytes block = random_up_to({}, size);
    for (u32 i = 0; i < len; ++i) block[copy + i] = block[source + i];
    if (copy + len < size) block[copy + len] = static_cast<u8>(block[source + len] + 1);
    block[copy - 1] = static_cast<u8>(block[source - 1] + 1);
    return block;
}

constexpr u32 first_end = 1 + 512; // of the first window

/// A literal costs 3, a match of `Len` bytes `Price`, any other a million.
template <u32 Len, u32 Price>
constexpr price_functions one_match{[](u32) { return 3U; },
                                    [](u32, u32 len, u32) { return len == Len ? Price : 1000000; }};

TEST(cost_parse, at_level_8_a_match_up_to_the_windows_end_has_only_its_price)
{
    // Before the end, four literals cost three prices: the last one is free.
    const bytes block = with_copy(2000, 100, first_end - 4, 4);
    const tokens taken =
        spelled_out({literals(first_end - 5), {4, 409}, literals(2000 - first_end)});
    EXPECT_EQ(parse<8>(block, one_match<4, 8>).found, taken);
    EXPECT_EQ(parse<8>(block, one_match<4, 9>).found, taken); // a tie
    EXPECT_EQ(parse<8>(block, one_match<4, 10>).found, spelled_out({literals(1999)}));
}

TEST(cost_parse, at_level_8_a_match_past_the_windows_end_has_only_its_price)
{
    const bytes block = with_copy(2000, 100, first_end - 4, 50);
    const tokens taken =
        spelled_out({literals(first_end - 5), {50, 409}, literals(2000 - first_end - 46)});
    EXPECT_EQ(parse<8>(block, one_match<50, 9>).found, taken);
    EXPECT_EQ(parse<8>(block, one_match<50, 10>).found.size(), 1999U);
}

TEST(cost_parse, at_level_8_the_cost_of_a_match_includes_what_follows_it)
{
    // Here four literals cost four prices.
    const bytes block = with_copy(2000, 100, 400, 4);
    const tokens taken = spelled_out({literals(399), {4, 300}, literals(1596)});
    EXPECT_EQ(parse<8>(block, one_match<4, 12>).found, taken); // the match wins a tie
    EXPECT_EQ(parse<8>(block, one_match<4, 13>).found, spelled_out({literals(1999)}));
}

TEST(cost_parse, at_level_8_no_match_starts_at_the_last_position_of_a_window)
{
    // A match of eight bytes there is not taken.  Its last seven bytes are also listed, and belong
    // to the next window.
    const bytes block = with_copy(2000, 100, first_end - 1, 8);
    EXPECT_EQ(parse<8>(block, one_match<8, 1>).found, spelled_out({literals(1999)}));
    EXPECT_EQ(parse<8>(block, simple_prices).found,
              spelled_out({literals(first_end - 1), {7, 412}, literals(2000 - first_end - 7)}));
    // One position earlier it is taken.
    EXPECT_EQ(parse<8>(with_copy(2000, 100, first_end - 2, 8), one_match<8, 1>).found,
              spelled_out({literals(first_end - 3), {8, 411}, literals(2000 - first_end - 6)}));
}

TEST(cost_parse, at_level_8_only_the_listed_length_is_priced)
{
    // Of eight bytes, the last four are cheap; the first four would be too.
    EXPECT_EQ(parse<8>(with_copy(500, 100, 400, 8), one_match<4, 1>).found,
              spelled_out({literals(403), {4, 300}, literals(92)}));
}

TEST(cost_parse, at_level_8_a_match_past_the_end_moves_the_next_window)
{
    const bytes part = random_up_to({}, 300);
    bytes block = random_up_to(part, first_end - 10);
    block.insert(block.end(), part.begin() + 1, part.begin() + 256); // up to 245 past the end
    block = test::joined({block, bytes_of("-"), part});
    EXPECT_EQ(parse<8>(block, simple_prices).found, plain_tokens(8, block, 1, 3, simple_prices));
    // The second window has 1024 positions from there on.
    const bytes longer = random_up_to(block, 1 + 502 + 255 + 1024 + 1);
    EXPECT_EQ(parse<8>(longer, simple_prices).windows, 3U);
    EXPECT_EQ(parse<8>({longer.begin(), longer.end() - 1}, simple_prices).windows, 2U);
}

TEST(cost_parse, at_level_8_sums_are_compared_as_unsigned)
{
    // A match of price -1 is cheap if adding what follows wraps around, and very expensive if not.
    EXPECT_EQ(parse<8>(with_copy(500, 100, 400, 4), one_match<4, 0xFFFFFFFF>).found,
              spelled_out({literals(399), {4, 300}, literals(96)}));
    EXPECT_EQ(parse<8>(with_copy(405, 100, 400, 4), one_match<4, 0xFFFFFFFF>).found,
              spelled_out({literals(404)}));
}

TEST(cost_parse, at_level_9_sums_are_compared_as_signed)
{
    const bytes block = with_copy(405, 100, 400, 4);
    EXPECT_EQ(parse<9>(block, one_match<4, 0xFFFFFFFF>).found,
              spelled_out({literals(399), {4, 300}, literals(1)}));
}

TEST(cost_parse, at_level_9_a_tie_keeps_the_path_that_was_found_first)
{
    // That is the match; four literals cost four prices.
    const bytes block = with_copy(500, 100, 400, 4);
    const tokens taken = spelled_out({literals(399), {4, 300}, literals(96)});
    EXPECT_EQ(parse<9>(block, one_match<4, 12>).found, taken);
    EXPECT_EQ(parse<9>(block, one_match<4, 13>).found, spelled_out({literals(499)}));
}

TEST(cost_parse, at_level_9_each_length_is_priced_at_its_nearest_match)
{
    // "abcdef" is at 1 and 235, "abcd" at 200.  Four bytes from 1 would be free.
    constexpr price_functions far_is_cheap{[](u32) { return 100U; },
                                           [](u32 pos, u32 len, u32 dist) {
                                               return pos == 235 && len == 4 && dist == 234
                                                          ? 0U
                                                          : 90 * len;
                                           }};
    const bytes block = test::joined({random_up_to(bytes_of("-abcdef"), 200), bytes_of("abcdX"),
                                      random_up_to({}, 30), bytes_of("abcdefZ")});
    const tokens found = parse<9>(block, far_is_cheap).found;
    EXPECT_EQ(tokens(found.end() - 2, found.end()), (tokens{{6, 234}, {1, 0}}));
}

TEST(cost_parse, at_level_9_matches_are_longer_than_the_records_say)
{
    // A record has one byte less than is known to agree, and at most 256.
    for (const u32 len : {3U, 4U, 255U, 256U, 257U, 300U}) {
        const bytes block = with_copy(1000, 100, 500, len);
        EXPECT_EQ(parse<9>(block, simple_prices).found,
                  spelled_out({literals(499), {len, 400}, literals(500 - len)}))
            << len;
    }
}

TEST(cost_parse, at_level_9_a_match_of_the_last_window_ends_at_the_blocks_end)
{
    // Although the zeros past the block would continue it.
    const bytes block = test::joined({random_up_to({}, 20), bytes(40), {1, 2, 3}, bytes(20)});
    EXPECT_EQ(parse<9>(block, simple_prices).found,
              spelled_out({literals(20), {39, 1}, literals(3), {20, 23}}));
}

TEST(cost_parse, at_level_9_a_match_extends_at_most_2048_positions_past_its_window)
{
    // From one of the first window's last positions on, everything repeats.  The next window starts
    // at 2561, where that match is cut; its own match is cut 2048 positions after its 1024.
    // Positions past a window that a match covers are not inserted: 361 and 3433 are the nearest.
    for (const u32 at : {first_end - 1, first_end - 2, first_end - 200}) {
        bytes block = random_up_to({}, at);
        while (block.size() < 6000) block.push_back(block[block.size() - 200]);
        EXPECT_EQ(parse<9>(block, simple_prices).found, spelled_out({literals(at - 1),
                                                                     {2561 - at, 200},
                                                                     {1024 + 2048, 2200},
                                                                     {6000 - 2561 - 3072, 2200}}))
            << at;
    }
}

TEST(cost_parse, at_level_9_positions_in_a_match_above_256_bytes_are_not_searched)
{
    // Literals instead of the match are free, where positions are searched.
    constexpr price_functions literals_are_free{
        [](u32 pos) { return pos < 600 ? 5U : 0U; },
        [](u32, u32 len, u32) { return len == 257 || len == 256 ? 100U : 5000 * len; }};
    EXPECT_EQ(parse<9>(with_copy(2000, 20, 599, 256), literals_are_free).found,
              spelled_out({literals(1999)}));
    EXPECT_EQ(parse<9>(with_copy(2000, 20, 599, 257), literals_are_free).found,
              spelled_out({literals(598), {257, 579}, literals(1144)}));
}

TEST(cost_parse, at_level_9_the_second_half_of_a_long_match_is_searched)
{
    // The long match has 400 bytes from 600 on.  A cheap match of 7 at 799 is not found, as that is
    // the last position that is not searched; at 800 it is.  A part of the long one leads to each.
    for (const u32 at : {799U, 800U}) {
        static u32 cheap_at;
        cheap_at = at;
        constexpr price_functions one_is_cheap{
            [](u32) { return 10U; },
            [](u32 pos, u32 len, u32) {
                if (pos == 600) return 600 + len == cheap_at || len == 400 ? 50 : 1000U;
                return pos == cheap_at && 7 == len ? u32(-2000) : 1000 * len;
            }};
        const bytes block = with_copy(2000, 20, 600, 400);
        const tokens found = parse<9>(block, one_is_cheap).found;
        EXPECT_EQ(found == plain_tokens(9, block, 1, 3, one_is_cheap), true);
        EXPECT_EQ(std::count(found.begin(), found.end(), plain_token{7, 580}), at == 800) << at;
    }
}

TEST(cost_parse, at_level_9_a_block_of_one_distinct_byte)
{
    // The first match is at 2.  It is cut 2048 positions past the window, and the next window
    // starts at its end.
    for (const u32 size : {3U, 10U, 258U, 259U, 600U, 2562U, 3000U, 20000U}) {
        const bytes block(size, 'z');
        const tokens found = parse<9>(block, simple_prices).found;
        ASSERT_EQ(found, plain_tokens(9, block, 1, 3, simple_prices)) << size;
    }
    EXPECT_EQ(parse<9>(bytes(2561, 'z'), simple_prices).found, (tokens{{1, 0}, {2559, 1}}));
    EXPECT_EQ(parse<9>(bytes(2600, 'z'), simple_prices).found[1], (plain_token{2559, 1}));
}

// Distances

TEST(cost_parse, takes_no_match_beyond_max_dist)
{
    const bytes block = with_copy(1000, 100, 500, 40);
    for (const u32 level : {8U, 9U}) {
        const auto found = [&](u32 max_dist) {
            return level == 8 ? parse<8>(block, simple_prices, {max_dist}).found
                              : parse<9>(block, simple_prices, {max_dist}).found;
        };
        EXPECT_EQ(found(400), spelled_out({literals(499), {40, 400}, literals(460)})) << level;
        EXPECT_EQ(found(399), spelled_out({literals(999)})) << level;
    }
}

TEST(cost_parse, equals_the_plain_one_with_a_max_dist)
{
    for (const auto& shape : test::all_shapes())
        for (const u32 max_dist : {1U, 30U, 500U})
            ASSERT_NO_FATAL_FAILURE(
                expect_plain_tokens(shape.make(3000, 4), simple_prices, shape.name, max_dist));
}

// Costs of 2^30 and more

TEST(cost_parse, at_level_9_a_window_ends_early_if_all_costs_are_too_high)
{
    // The positions from there on are in the trie already; later ones are no candidates.
    for (const auto& shape : test::all_shapes()) {
        const bytes block = shape.make(9000, 5);
        const parse_result result = parse<9>(block, high_prices);
        if (shape.name == "random") {
            EXPECT_GT(result.windows, 5U); // five full windows would suffice
        }
        bytes copy{block[0]};
        for (const plain_token& token : result.found) {
            ASSERT_LE(token.dist, copy.size()) << shape.name;
            for (u32 k = 0; k < token.len; ++k) {
                const usize source = copy.size() - token.dist;
                copy.push_back(token.dist == 0 ? block[copy.size()] : copy[source]);
            }
        }
        EXPECT_TRUE(copy == block) << shape.name;
    }
}

// The writer

TEST(cost_parse, stops_when_the_writer_is_full)
{
    const bytes block = test::find_shape("text").make(9000, 1);
    const tokens all_8 = parse<8>(block, simple_prices).found;
    const tokens all_9 = parse<9>(block, simple_prices).found;
    for (const usize count : {0U, 1U, 2U, 100U, 700U}) {
        const auto first = [&](const tokens& all) {
            return tokens(all.begin(), all.begin() + static_cast<i64>(count));
        };
        const parse_result backward = parse<8>(block, simple_prices, {any_dist, count});
        const parse_result forward = parse<9>(block, simple_prices, {any_dist, count});
        EXPECT_EQ(backward.found, first(all_8)) << count;
        EXPECT_EQ(forward.found, first(all_9)) << count;
        EXPECT_LE(backward.windows, 4U); // of five
        EXPECT_LE(forward.windows, 4U);
        EXPECT_EQ(forward.windows == 0, count == 0);
    }
}

// Any blocks

TEST(cost_parse, equals_the_plain_one_for_small_blocks_of_all_shapes)
{
    for (const auto& shape : test::all_shapes()) {
        for (u32 size = 1; size <= 300; size += 1 + size / 12) {
            const bytes block = shape.make(size, size);
            for (const price_functions& prices : all_prices)
                ASSERT_NO_FATAL_FAILURE(expect_plain_tokens(block, prices, shape.name));
        }
    }
}

TEST(cost_parse, equals_the_plain_one_around_the_ends_of_windows)
{
    for (const auto& shape : test::all_shapes())
        for (const u32 size : {512U, 513U, 514U, 515U, 1537U, 1538U, 3586U, 7682U})
            ASSERT_NO_FATAL_FAILURE(
                expect_plain_tokens(shape.make(size, size), simple_prices, shape.name));
}

TEST(cost_parse, equals_the_plain_one_for_larger_blocks_of_all_shapes)
{
    for (const auto& shape : test::all_shapes()) {
        const bytes block = shape.make(9000, 3);
        for (const price_functions& prices : all_prices)
            ASSERT_NO_FATAL_FAILURE(expect_plain_tokens(block, prices, shape.name));
    }
}

TEST(cost_parse, equals_the_plain_one_for_periodic_blocks)
{
    for (const u32 period : {1U, 2U, 3U, 255U, 257U, 300U, 2048U, 5000U}) {
        bytes block = random_up_to({}, period);
        while (block.size() < 15000) block.push_back(block[block.size() - period]);
        ASSERT_NO_FATAL_FAILURE(
            expect_plain_tokens(block, simple_prices, "period " + std::to_string(period)));
    }
}

} // namespace
} // namespace quarnex
