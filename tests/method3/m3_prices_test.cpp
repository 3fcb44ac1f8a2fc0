#include "method3/m3_prices.h"

#include "method3/m3_streams.h"
#include "support/price_runs.h"

#include <gtest/gtest.h>
#include <numeric>

namespace quarnex {
namespace {

// Initially, main symbols up to 223 have 8 bits, those from 224 on 9.  Of 17 slots, those up
// to 14 have 4 bits and the last two 5.

constexpr u32 block_size = 100; // 17 slots

TEST(m3_prices, of_literals_are_their_code_lengths)
{
    const test::bytes text{0, 'b', 223, 224, 255};
    const m3_encoder_models models(block_size);
    const m3_prices<3> prices(text.data(), models);
    const std::array<u32, 5> expected{8, 8, 8, 9, 9};
    for (u32 pos = 0; pos < 5; ++pos) EXPECT_EQ(prices.literal(pos), expected[pos]);
}

template <u32 MinMatch>
u32 start_price(u32 len, u32 dist)
{
    const test::bytes text{0};
    const m3_encoder_models models(block_size);
    m3_prices<MinMatch> prices(text.data(), models);
    prices.start_window();
    return prices.matches(0, dist)(len);
}

TEST(m3_prices, of_matches_by_hand)
{
    EXPECT_EQ(start_price<3>(3, 1), 9U + 4);
    EXPECT_EQ(start_price<3>(33, 4), 9U + 4); // 286, the last short length; slot 3
    EXPECT_EQ(start_price<2>(2, 1), 9U + 4);
    EXPECT_EQ(start_price<2>(32, 1), 9U + 4);
    // Distances of slot 4 have one extra bit, those of slot 15 six.
    EXPECT_EQ(start_price<3>(3, 5), 9U + 4 + 1);
    EXPECT_EQ(start_price<3>(3, 6), 9U + 4 + 1);
    EXPECT_EQ(start_price<3>(3, 193), 9U + 5 + 6);
    EXPECT_EQ(start_price<3>(3, 257), 9U + 5 + 7);
}

TEST(m3_prices, of_long_lengths_by_hand)
{
    EXPECT_EQ(start_price<3>(34, 1), 9U + 4 + 4); // 287 and slot 0
    EXPECT_EQ(start_price<3>(37, 1), 9U + 4 + 4);
    EXPECT_EQ(start_price<3>(38, 1), 9U + (4 + 1) + 4); // slot 4
    EXPECT_EQ(start_price<3>(34 + 192, 1), 9U + (5 + 6) + 4);
    EXPECT_EQ(start_price<2>(33, 1), 9U + 4 + 4);
    EXPECT_EQ(start_price<2>(37, 1), 9U + (4 + 1) + 4);
}

TEST(m3_prices, follow_the_rebuilt_codes)
{
    test::bytes text(256);
    std::iota(text.begin(), text.end(), u8{0});
    m3_encoder_models models(block_size);
    const m3_prices<3> prices(text.data(), models);
    test::m3_plain_model plain(288);
    for (u32 count = 1; count <= 300; ++count) {
        const u32 symbol = count % 3 == 0 ? 'x' : 'a' + count % 16;
        m3_model_step(models.main, symbol);
        plain.step(symbol);
        for (u32 byte = 0; byte < 256; ++byte)
            ASSERT_EQ(prices.literal(byte), plain.code_len[byte]) << count << ' ' << byte;
    }
    EXPECT_LT(prices.literal('x'), 4U);
}

TEST(m3_prices, of_matches_are_those_of_the_windows_start)
{
    const test::bytes text(1);
    m3_encoder_models models(block_size);
    m3_prices<3> prices(text.data(), models);
    prices.start_window();
    for (u32 count = 0; count < 1000; ++count) {
        m3_model_step(models.main, literal_symbols);
        m3_model_step(models.distance, 0);
    }
    EXPECT_EQ(prices.matches(0, 1)(3), 9U + 4);
    prices.start_window();
    const u32 codes =
        models.main.tables.codes[literal_symbols].length + models.distance.tables.codes[0].length;
    EXPECT_LT(codes, 6U);
    EXPECT_EQ(prices.matches(0, 1)(3), codes);
}

TEST(m3_prices, of_runs_are_those_of_single_lengths)
{
    test::bytes text(256);
    constexpr u32 size = 1U << 25;
    m3_encoder_models models(size);
    m3_prices<2> prices(text.data(), models);
    test::random_source random(1);
    for (u32 window = 0; window < 3; ++window) {
        prices.start_window();
        for (const u32 dist : test::many_distances(size)) {
            test::expect_runs_like_single_lengths(prices.matches(1, dist), 2);
            if (HasFatalFailure()) FAIL() << dist;
        }
        for (u32 count = 0; count < 5000; ++count) {
            m3_model_step(models.main, random.below(1 + random.below(288)));
            m3_model_step(models.length, random.below(1 + random.below(17)));
            m3_model_step(models.distance, random.below(1 + random.below(50)));
        }
    }
}

} // namespace
} // namespace quarnex
