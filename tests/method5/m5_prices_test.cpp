#include "method5/m5_prices.h"

#include "support/price_runs.h"

#include <gtest/gtest.h>
#include <memory>

namespace quarnex {
namespace {

constexpr u32 bit = 4096; // the price of a bit of probability 1/2

m5_prob_pair pair_of(u32 fast, u32 slow)
{
    m5_prob_pair pair;
    pair.halves = slow << 16 | fast;
    return pair;
}

TEST(m5_bit_price, of_a_fresh_pair_is_one_bit)
{
    EXPECT_EQ(m5_bit_price({}, 0), bit);
    EXPECT_EQ(m5_bit_price({}, 1), bit);
}

TEST(m5_bit_price, by_hand)
{
    // A 0 of 3/4: the entries are 1536 and 512; 1536 is 3 * 512, and 4096 * log2(3) is 6492.03.
    EXPECT_EQ(m5_bit_price(pair_of(24576, 24576), 0), 11 * bit - (9 * bit + 6492));
    EXPECT_EQ(m5_bit_price(pair_of(24576, 24576), 1), 2 * bit);
    // The mean counts.
    EXPECT_EQ(m5_bit_price(pair_of(32000, 17152), 1), 2 * bit);
    EXPECT_EQ(m5_bit_price(pair_of(17152, 32000), 1), 2 * bit);
}

TEST(m5_bit_price, takes_entries_2_to_2045_and_is_never_negative)
{
    // 7 + 63 = 70: 70 >> 5 = 2 and (32768 - 35) >> 4 = 2045.  45056 - 4096 * log2(2045) is 8.66,
    // rounded up as the entry is rounded down.
    m5_prob_pair pair;
    for (int i = 0; i < 2000; ++i) pair.update(1);
    EXPECT_EQ(pair.fast(), 7U);
    EXPECT_EQ(pair.slow(), 63U);
    EXPECT_EQ(m5_bit_price(pair, 0), 10 * bit);
    EXPECT_EQ(m5_bit_price(pair, 1), 9U);
    // 32761 + 32705 = 65466: 65466 >> 5 = 2045 and (32768 - 32733) >> 4 = 2.
    for (int i = 0; i < 4000; ++i) pair.update(0);
    EXPECT_EQ(pair.fast(), 32761U);
    EXPECT_EQ(pair.slow(), 32705U);
    EXPECT_EQ(m5_bit_price(pair, 0), 9U);
    EXPECT_EQ(m5_bit_price(pair, 1), 10 * bit);
}

TEST(m5_bit_price, steps_where_the_mean_reaches_another_entry)
{
    // For a 0 at multiples of 32 of the sum, for a 1 at 16 of half of it.
    const u32 at_1024 = m5_bit_price(pair_of(16384, 16384), 0);
    EXPECT_EQ(m5_bit_price(pair_of(16384, 16415), 0), at_1024);
    EXPECT_LT(m5_bit_price(pair_of(16384, 16416), 0), at_1024);
    EXPECT_GT(m5_bit_price(pair_of(16384, 16383), 0), at_1024);
    const u32 one_at_1024 = m5_bit_price(pair_of(16384, 16384), 1);
    EXPECT_EQ(m5_bit_price(pair_of(16384, 16385), 1), one_at_1024);
    EXPECT_GT(m5_bit_price(pair_of(16384, 16386), 1), one_at_1024);
    EXPECT_EQ(m5_bit_price(pair_of(16384, 16384 - 30), 1), one_at_1024);
    EXPECT_LT(m5_bit_price(pair_of(16384, 16384 - 32), 1), one_at_1024);
}

class m5_prices_of_a_block : public testing::Test {
  protected:
    template <u32 MinMatch = 3>
    m5_prices<MinMatch> prices() const
    {
        m5_prices<MinMatch> made(text, *model);
        made.start_window();
        return made;
    }
    u32 match(u32 len, u32 dist) const { return prices().matches(2, dist)(len); }

    // A pair that costs two bits for a 1.
    const m5_prob_pair dear = pair_of(24576, 24576);

    const u8 text[8]{'a', 'b', 'c', 'd', 0xFF, 0, 'e', 'f'};
    std::unique_ptr<m5_model> model = std::make_unique<m5_model>();
};

TEST_F(m5_prices_of_a_block, a_fresh_literal_is_9_bits)
{
    EXPECT_EQ(prices().literal(2), 9 * bit);
}

TEST_F(m5_prices_of_a_block, a_fresh_match_by_hand)
{
    // Flag, n bits of prefix, n of value, six of slot.
    EXPECT_EQ(match(3, 1), (1 + 1 + 1 + 6) * bit);
    EXPECT_EQ(match(4, 1), (1 + 1 + 1 + 6) * bit);
    EXPECT_EQ(match(5, 1), (1 + 2 + 2 + 6) * bit);
    EXPECT_EQ(match(9, 1), (1 + 3 + 3 + 6) * bit);
    EXPECT_EQ(match(256, 1), (1 + 7 + 7 + 6) * bit);
    EXPECT_EQ(match(257, 1), (1 + 8 + 8 + 6) * bit);
    EXPECT_EQ(match(2048, 1), (1 + 10 + 10 + 6) * bit);
    EXPECT_EQ(match(2049, 1), (1 + 11 + 11 + 6) * bit);
    EXPECT_EQ(prices<2>().matches(2, 1)(2), (1 + 1 + 1 + 6) * bit);
    EXPECT_EQ(prices<2>().matches(2, 1)(4), (1 + 2 + 2 + 6) * bit);
}

TEST_F(m5_prices_of_a_block, extra_bits_of_a_distance_are_a_bit_each)
{
    EXPECT_EQ(match(3, 4), match(3, 1));
    EXPECT_EQ(match(3, 5), match(3, 1) + bit);             // slot 4
    EXPECT_EQ(match(3, 3072), match(3, 1) + 10 * bit);     // slot 22
    EXPECT_EQ(match(3, 3073), match(3, 1) + 10 * bit);     // slot 23: eight and two
    EXPECT_EQ(match(3, 1U << 30), match(3, 1) + 28 * bit); // slot 59
}

TEST_F(m5_prices_of_a_block, the_context_of_the_flag_is_the_last_byte)
{
    model->match_flag[u8{'b'}] = dear;
    EXPECT_EQ(match(3, 1), 10 * bit);
    EXPECT_EQ(prices().matches(3, 1)(3), 9 * bit);
    EXPECT_EQ(prices().literal(2), m5_bit_price(dear, 0) + 8 * bit);
    EXPECT_EQ(prices().literal(3), 9 * bit);
}

TEST_F(m5_prices_of_a_block, the_context_of_a_literal_bit_is_the_twelve_bits_before_it)
{
    // 'c' is 0110 0011 after "ab", 0x6162.
    model->lit_high[2][0x162 << 1 & 0xFFF] = dear; // the second bit, a 1, after 0
    EXPECT_EQ(prices().literal(2), 10 * bit);
    model->lit_low[0][0x162 << 7 & 0xFFF] = dear; // not the last one, which has 0110001 before it
    EXPECT_EQ(prices().literal(2), 10 * bit);
    model->lit_low[0][(0x162 << 7 | 0x31) & 0xFFF] = dear;
    EXPECT_EQ(prices().literal(2), 11 * bit);
    model->lit_high[3][0x162] = dear; // the first one is a 0
    EXPECT_EQ(prices().literal(2), 10 * bit + m5_bit_price(dear, 0));
}

TEST_F(m5_prices_of_a_block, the_prefix_and_the_bits_of_a_length)
{
    // 11 is the value 10: three ones less one, a zero, and 010.
    model->len_prefix[1] = dear;
    EXPECT_EQ(match(11, 1), 14 * bit);
    model->len_prefix[2] = dear;
    EXPECT_EQ(match(11, 1), 15 * bit);
    model->len_prefix[3] = dear;
    EXPECT_EQ(match(11, 1), 14 * bit + m5_bit_price(dear, 0));
    model->len_bits[2][1] = dear;
    EXPECT_EQ(match(11, 1), 15 * bit + m5_bit_price(dear, 0));
    model->len_bits[2][0] = model->len_bits[1][1] = dear; // a 0, and of another number of bits
    EXPECT_EQ(match(11, 1), 14 * bit + 2 * m5_bit_price(dear, 0));
}

TEST_F(m5_prices_of_a_block, the_slot_has_a_tree_by_length_class)
{
    // Slot 2 is 000010: the fifth bit is at 1 << 4.
    for (u32 length_class = 0; length_class < 4; ++length_class) {
        model->dist_slot[length_class][1 << 4] = dear;
        for (u32 len = 3; len <= 7; ++len) {
            const u32 classes = std::min(len - 3, 3U);
            const u32 fresh = len < 5 ? 9 * bit : 11 * bit;
            EXPECT_EQ(match(len, 3), classes <= length_class ? fresh + bit : fresh) << len;
        }
    }
}

TEST_F(m5_prices_of_a_block, the_extra_bits_of_middle_and_high_slots)
{
    // 3072 is the last one of slot 22, which starts at 2048 and has ten ones.
    model->dist_mid[2048 + 1] = dear;
    model->dist_mid[2048 + 1023] = dear;
    EXPECT_EQ(match(3, 3072), 9 * bit + 12 * bit);
    EXPECT_EQ(match(3, 3071), 9 * bit + 10 * bit + m5_bit_price(dear, 0));
    // 4096 is that of slot 23: the top eight of ten.
    model->dist_top[0][255] = dear;
    EXPECT_EQ(match(3, 4096), 9 * bit + 11 * bit);
    EXPECT_EQ(match(3, 4093), 9 * bit + 11 * bit); // all alike but for the direct bits
    EXPECT_EQ(match(3, 4092), 9 * bit + 9 * bit + m5_bit_price(dear, 0));
}

TEST_F(m5_prices_of_a_block, lengths_and_slots_are_those_of_the_windows_start)
{
    auto before = prices();
    model->len_prefix[1] = dear;
    EXPECT_EQ(before.matches(2, 1)(5), 11 * bit);
    EXPECT_EQ(prices().matches(2, 1)(5), 12 * bit);
}

// Prices of a model in any state

/// Sets all pairs of an array to random ones.
template <usize Size>
void randomize(m5_prob_pair (&pairs)[Size], test::random_source& random)
{
    for (m5_prob_pair& pair : pairs) {
        pair = pair_of(7 + random.below(32755), 63 + random.below(32643));
    }
}

/// The price of a number by a bit tree, from the top bit down.
u32 tree_price(const m5_prob_pair* tree, u32 value, u32 width)
{
    u32 price = 0;
    u32 index = 1;
    for (u32 place = width; place-- != 0;) {
        price += m5_bit_price(tree[index], value >> place & 1);
        index = 2 * index + (value >> place & 1);
    }
    return price;
}

/// The price of a match, bit by bit.
u32 plain_match_price(const m5_model& model, u8 last_byte, u32 length_value, u32 offset)
{
    u32 price = m5_bit_price(model.match_flag[last_byte], 1);
    const u32 width = static_cast<u32>(std::bit_width(length_value)) - 1;
    for (u32 k = 1; k <= width; ++k) price += m5_bit_price(model.len_prefix[k], k < width);
    for (u32 place = 0; place < width; ++place) {
        price += m5_bit_price(model.len_bits[width - 1][place], length_value >> place & 1);
    }
    const u32 slot = value_slot(offset);
    price += tree_price(model.dist_slot[std::min(length_value - 2, 3U)], slot, 6);
    if (slot < 4) return price;
    const u32 extra_bits = slot_extra_bits(slot);
    const u32 extra = offset - slot_base(slot);
    if (slot < 23) return price + tree_price(model.dist_mid + slot_base(slot), extra, extra_bits);
    return price + tree_price(model.dist_top[slot - 23], extra >> (extra_bits - 8), 8) +
           (extra_bits - 8) * bit;
}

TEST_F(m5_prices_of_a_block, of_all_lengths_singly_and_in_runs)
{
    m5_prices<2> prices(text, *model);
    test::random_source random(1);
    for (u32 window = 0; window < 3; ++window) {
        prices.start_window();
        for (const u32 dist : test::many_distances(UINT32_MAX)) {
            const u32 pos = 2 + random.below(3);
            const auto price = prices.matches(pos, dist);
            for (u32 len = 2; len <= max_window + window_overhang; ++len) {
                ASSERT_EQ(price(len), plain_match_price(*model, text[pos - 1], len, dist - 1))
                    << len << " at " << dist;
            }
            test::expect_runs_like_single_lengths(price, 2);
            if (HasFatalFailure()) FAIL() << dist;
        }
        randomize(model->match_flag, random);
        randomize(model->len_prefix, random);
        for (auto& bits : model->len_bits) randomize(bits, random);
        for (auto& slots : model->dist_slot) randomize(slots, random);
        randomize(model->dist_mid, random);
        for (auto& bits : model->dist_top) randomize(bits, random);
    }
}

} // namespace
} // namespace quarnex
