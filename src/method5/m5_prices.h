// method5/m5_prices.h - token prices of method 5
//
// In 1/4096 bits, by the models' state when a window is planned, in exactly the contexts in which
// the token would be coded.  Prices of lengths and slots are tabulated at the window's start, those
// of a slot's extra bits when the slot first occurs in the window: usually hundreds of uses follow.
//
// Memory: 57 KiB.
#pragma once

#include "coding/bit_cost.h"
#include "match/cost_parse.h"
#include "method5/m5_coder.h"

#include <array>
#include <bit>

namespace quarnex {

/// Returns the price of a bit by its model, whose mean is reduced to steps of 2^-11.
constexpr u32 m5_bit_price(m5_prob_pair pair, u32 bit)
{
    const u32 sum = pair.fast() + pair.slow();
    const u32 one = 0 - bit; // all ones for a 1
    const u32 share = (((sum & ~bit) ^ one) + (65537 & one)) >> 5;
    return u32{bit_cost_half} - bit_cost[share];
}

/// The price of a bit without a model.
inline constexpr u32 m5_direct_bit_price = 4096;

/// Writes the prices of all `width`-bit numbers by the bit tree of pairs 1 to 2^width - 1.
inline void m5_tree_prices(const m5_prob_pair* tree, u32 width, u32* prices)
{
    prices[0] = 0;
    // Each pass extends the prices of the upper bits by one more bit, in place.
    for (u32 count = 1; count < 1U << width; count *= 2) {
        for (u32 upper = count; upper-- != 0;) {
            const u32 price = prices[upper];
            u32* const extended = prices + usize{2} * upper;
            extended[0] = price + m5_bit_price(tree[count + upper], 0);
            extended[1] = price + m5_bit_price(tree[count + upper], 1);
        }
    }
}

template <u32 MinMatch>
class m5_prices {
  public:
    /// Prices for the block `text`.
    m5_prices(const u8* text, const m5_model& model) : text_(text), model_(model) {}

    void start_window()
    {
        for (u32 length_class = 0; length_class < m5_length_classes; ++length_class) {
            std::array<u32, value_slots> prices;
            m5_tree_prices(model_.dist_slot[length_class], m5_slot_bits, prices.data());
            for (u32 slot = 0; slot < value_slots; ++slot) {
                slots_[slot][length_class] = prices[slot];
            }
        }
        known_.fill(false);
        for (u32 len = MinMatch; len < tabulated_lengths; ++len) {
            lengths_[len] = length_value(len - MinMatch + m5_min_length_value);
        }
    }

    u32 literal(u32 pos) const
    {
        const u32 bits = m5_history_at(text_ + pos) << 8 | text_[pos];
        return flag(pos, 0) + nibble(model_.lit_high, bits >> m5_nibble_bits) +
               nibble(model_.lit_low, bits);
    }

    /// The prices of matches at one position and distance.
    class at_distance {
      public:
        at_distance(const m5_prices& prices, u32 rest, u32 slot)
            : prices_(prices), slots_(prices.slots_[slot]), rest_(rest)
        {
        }

        u32 operator()(u32 len) const
        {
            const u32 value = len - MinMatch + m5_min_length_value;
            return rest_ + prices_.length(len) + slots_[m5_length_class(value)];
        }
        price_run run(u32 len) const
        {
            if (len >= tabulated_lengths) return {};
            const u32 length_class = m5_length_class(len - MinMatch + m5_min_length_value);
            const bool last_class = length_class == m5_length_classes - 1;
            return {prices_.lengths_.data() + len, last_class ? tabulated_lengths - len : 1,
                    rest_ + slots_[length_class]};
        }

      private:
        const m5_prices& prices_;
        const std::array<u32, m5_length_classes>& slots_;
        u32 rest_; // the flag and the extra bits, common to all lengths
    };

    at_distance matches(u32 pos, u32 dist)
    {
        const u32 offset = dist - 1;
        const u32 slot = value_slot(offset);
        return {*this, flag(pos, 1) + extra(offset, slot), slot};
    }

  private:
    static constexpr u32 top_mask = (1U << m5_top_bits) - 1;

    u32 flag(u32 pos, u32 bit) const
    {
        return m5_bit_price(model_.match_flag[text_[pos - 1]], bit);
    }

    /// Returns the price of the lowest four bits.
    static u32 nibble(const m5_nibble_models& models, u32 bits)
    {
        u32 price = 0;
        for (u32 place = 0; place < m5_nibble_bits; ++place) {
            const u32 context = m5_literal_context(bits >> (place + 1));
            price += m5_bit_price(models[place][context], bits >> place & 1);
        }
        return price;
    }

    u32 length(u32 len) const
    {
        return len < tabulated_lengths ? lengths_[len]
                                       : length_value(len - MinMatch + m5_min_length_value);
    }

    u32 length_value(u32 value) const
    {
        const auto below = static_cast<u32>(std::bit_width(value)) - 1; // the leading one
        u32 price = m5_bit_price(model_.len_prefix[below], 0);
        for (u32 step = 1; step < below; ++step) price += m5_bit_price(model_.len_prefix[step], 1);
        for (u32 place = 0; place < below; ++place) {
            price += m5_bit_price(model_.len_bits[below - 1][place], value >> place & 1);
        }
        return price;
    }

    /// Returns the price of the extra bits of a distance less one.
    u32 extra(u32 offset, u32 slot)
    {
        if (slot < plain_slots) return 0;
        if (!known_[slot]) tabulate_extra(slot);
        if (slot < m5_first_high_slot) return mid_[offset];
        const u32 direct = slot_extra_bits(slot) - m5_top_bits;
        return top_[slot - m5_first_high_slot][offset >> direct & top_mask] +
               direct * m5_direct_bit_price;
    }

    void tabulate_extra(u32 slot)
    {
        known_[slot] = true;
        if (slot < m5_first_high_slot) {
            const u32 base = slot_base(slot);
            m5_tree_prices(model_.dist_mid + base, slot_extra_bits(slot), mid_.data() + base);
        } else {
            const u32 high = slot - m5_first_high_slot;
            m5_tree_prices(model_.dist_top[high], m5_top_bits, top_[high].data());
        }
    }

    const u8* text_;
    const m5_model& model_;
    std::array<std::array<u32, m5_length_classes>, value_slots> slots_;
    std::array<u32, tabulated_lengths> lengths_; // by length
    // Prices of extra bits, for the slots that have occurred in this window.
    std::array<bool, value_slots> known_;
    std::array<u32, slot_base(m5_first_high_slot)> mid_; // by distance less one
    std::array<std::array<u32, top_mask + 1>, value_slots - m5_first_high_slot> top_;
};

static_assert(price_list<m5_prices<3>>);

} // namespace quarnex
