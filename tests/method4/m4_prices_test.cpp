#include "method4/m4_prices.h"

#include "support/price_runs.h"

#include <gtest/gtest.h>
#include <memory>

namespace quarnex {
namespace {

// A fresh main model has 288 symbols of count 1: 288 / 8 = 36, and log2(36) * 4096 is 21176.  The
// other two have 17: 17 / 8 = 2, and 4096.  A count below 8 reads entry 0, which is 61440.
constexpr u32 fresh_main = 21176;
constexpr u32 fresh_slots = 4096;
constexpr u32 unseen = 61440;

class m4_prices_of_a_block : public testing::Test {
  protected:
    m4_prices_of_a_block() { models->start(100); }

    m4_prices<3> prices(u32 mask = 0) const
    {
        m4_prices<3> made(text, mask, *models);
        made.start_window();
        return made;
    }

    const u8 text[6]{'x', 'b', 'y', 'b', 0x81, 'b'};
    std::unique_ptr<m4_enc_state> models = std::make_unique<m4_enc_state>();
};

TEST_F(m4_prices_of_a_block, every_price_of_a_fresh_model_is_negative)
{
    const u32 literal = fresh_main - unseen;
    EXPECT_EQ(prices().literal(1), literal);
    EXPECT_EQ(static_cast<i32>(literal), -40264);
    // A short length and slot 0.
    EXPECT_EQ(prices().matches(1, 1)(3), literal + (fresh_slots - unseen));
    EXPECT_EQ(prices().matches(1, 4)(33), literal + (fresh_slots - unseen));
}

TEST_F(m4_prices_of_a_block, extra_bits_of_a_distance_cost_a_bit_each)
{
    const u32 near = prices().matches(1, 1)(3);
    EXPECT_EQ(prices().matches(1, 5)(3), near + 4096); // slot 4
    EXPECT_EQ(prices().matches(1, 6)(3), near + 4096);
    EXPECT_EQ(prices().matches(1, 9)(3), near + 2 * 4096);
    EXPECT_EQ(prices().matches(1, 257)(3), near + 7 * 4096);
}

TEST_F(m4_prices_of_a_block, extra_bits_of_a_length_are_not_priced)
{
    const u32 long_length = fresh_main - unseen + (fresh_slots - unseen);
    const u32 near = fresh_slots - unseen;
    EXPECT_EQ(prices().matches(1, 1)(34), long_length + near);
    EXPECT_EQ(prices().matches(1, 1)(38), long_length + near); // slot 4
    EXPECT_EQ(prices().matches(1, 1)(34 + 200), long_length + near);
}

TEST_F(m4_prices_of_a_block, each_length_has_its_own_symbol)
{
    auto& counts = models->main[0].counts.counts;
    counts[256] = counts[286] = counts[287] = 16; // 4096 for 2
    models->length.counts.counts[0] = 32;
    models->length.counts.counts[4] = 64;
    const u32 near = fresh_slots - unseen;
    EXPECT_EQ(prices().matches(1, 1)(3), fresh_main - 4096 + near);
    EXPECT_EQ(prices().matches(1, 1)(4), fresh_main - unseen + near);
    EXPECT_EQ(prices().matches(1, 1)(33), fresh_main - 4096 + near);
    EXPECT_EQ(prices().matches(1, 1)(34), fresh_main - 4096 + (fresh_slots - 2 * 4096) + near);
    EXPECT_EQ(prices().matches(1, 1)(39), fresh_main - 4096 + (fresh_slots - 3 * 4096) + near);
}

TEST_F(m4_prices_of_a_block, a_count_of_exactly_8_has_the_base_price)
{
    models->main[0].counts.counts[u8{'b'}] = 8;
    EXPECT_EQ(prices().literal(1), fresh_main);
    models->main[0].counts.counts[u8{'b'}] = 7;
    EXPECT_EQ(prices().literal(1), fresh_main - unseen);
    models->main[0].counts.counts[u8{'b'}] = 15;
    EXPECT_EQ(prices().literal(1), fresh_main);
    models->main[0].counts.counts[u8{'b'}] = 16;
    EXPECT_EQ(prices().literal(1), fresh_main - 4096);
}

TEST_F(m4_prices_of_a_block, a_symbol_has_a_real_price_from_its_fourth_use_on)
{
    for (int use = 1; use <= 4; ++use) {
        m4_model_step<2>(models->main[0], 'b');
        const u32 base = bit_cost[models->main[0].counts.total >> 3];
        EXPECT_EQ(prices().literal(1), use < 4 ? base - unseen : base) << use;
    }
}

TEST_F(m4_prices_of_a_block, base_prices_are_those_of_the_window_start_but_counts_are_current)
{
    const m4_prices<3> before = prices();
    models->main[0].counts.total = 1024;
    models->distance.counts.total = 512;
    EXPECT_EQ(before.literal(1), fresh_main - unseen);
    EXPECT_EQ(prices().literal(1), 7 * 4096 - unseen);
    EXPECT_EQ(prices().matches(1, 1)(3), 7 * 4096 - unseen + (6 * 4096 - unseen));
    models->main[0].counts.counts[u8{'b'}] = 8;
    EXPECT_EQ(before.literal(1), fresh_main);
}

TEST_F(m4_prices_of_a_block, the_context_is_the_masked_previous_byte)
{
    models->main[u8{'x'}].counts.counts[u8{'b'}] = 16;
    models->main[u8{'y'}].counts.counts[u8{'b'}] = 32;
    models->main[u8{'y'}].counts.counts[256] = 32;
    models->main[0x81].counts.counts[u8{'b'}] = 64;
    models->main[1].counts.counts[u8{'b'}] = 128;
    EXPECT_EQ(prices(0xFF).literal(1), fresh_main - 4096);
    EXPECT_EQ(prices(0xFF).literal(3), fresh_main - 2 * 4096);
    EXPECT_EQ(prices(0xFF).matches(3, 1)(3), fresh_main - 2 * 4096 + (fresh_slots - unseen));
    EXPECT_EQ(prices(0xFF).literal(5), fresh_main - 3 * 4096);
    EXPECT_EQ(prices(0x7F).literal(5), fresh_main - 4 * 4096);
}

TEST_F(m4_prices_of_a_block, of_runs_are_those_of_single_lengths)
{
    constexpr u32 size = 1U << 25;
    models->start(size);
    m4_prices<2> prices(text, 0xFF, *models);
    test::random_source random(1);
    for (u32 window = 0; window < 3; ++window) {
        prices.start_window();
        for (const u32 dist : test::many_distances(size)) {
            for (const u32 pos : {1U, 2U, 3U}) {
                test::expect_runs_like_single_lengths(prices.matches(pos, dist), 2);
                if (HasFatalFailure()) FAIL() << dist << " at " << pos;
            }
        }
        for (u32 count = 0; count < 5000; ++count) {
            for (const char context : {'x', 'b', 'y'}) {
                const u32 symbol = random.below(1 + random.below(288));
                m4_model_step<m4_main_step>(models->main[u8(context)], symbol);
            }
            m4_model_step<m4_slot_step>(models->length, random.below(1 + random.below(17)));
            m4_model_step<m4_slot_step>(models->distance, random.below(1 + random.below(50)));
        }
    }
}

} // namespace
} // namespace quarnex
