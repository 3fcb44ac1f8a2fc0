// method5/m5_prices.h - token prices of method 5
//
// In 1/4096 bits, by the models' state when a window is planned, in exactly the contexts in which
// the token would be coded.
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
    const u32 share = bit == 0 ? sum >> 5 : (32768 - (sum >> 1)) >> 4;
    return u32{bit_cost_half} - bit_cost[share];
}

/// The price of a bit without a model.
inline constexpr u32 m5_direct_bit_price = 4096;

/// Returns the price of `value`, a number of `width` bits, by the bit tree of pairs 1 to
/// 2^width - 1.
inline u32 m5_tree_price(const m5_prob_pair* tree, u32 value, u32 width)
{
    u32 price = 0;
    for (u32 index = value | 1U << width; index != 1; index >>= 1) {
        price += m5_bit_price(tree[index >> 1], index & 1);
    }
    return price;
}

template <u32 MinMatch>
class m5_prices {
  public:
    /// Prices for the block `text`.
    m5_prices(const u8* text, const m5_model& model) : text_(text), model_(model) {}

    void start_window()
    {
        for (u32 slot = 0; slot < value_slots; ++slot) {
            for (u32 length_class = 0; length_class < m5_length_classes; ++length_class) {
                slots_[slot][length_class] =
                    m5_tree_price(model_.dist_slot[length_class], slot, m5_slot_bits);
            }
        }
        for (u32 len = MinMatch; len < listed_lengths; ++len) {
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
            if (len >= listed_lengths) return {};
            const u32 length_class = m5_length_class(len - MinMatch + m5_min_length_value);
            const bool last_class = length_class == m5_length_classes - 1;
            return {prices_.lengths_.data() + len, last_class ? listed_lengths - len : 1,
                    rest_ + slots_[length_class]};
        }

      private:
        const m5_prices& prices_;
        const std::array<u32, m5_length_classes>& slots_;
        u32 rest_; // the flag and the extra bits, common to all lengths
    };

    at_distance matches(u32 pos, u32 dist) const
    {
        const u32 offset = dist - 1;
        const u32 slot = value_slot(offset);
        return {*this, flag(pos, 1) + extra(offset, slot), slot};
    }

  private:
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
        return len < listed_lengths ? lengths_[len]
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
    u32 extra(u32 offset, u32 slot) const
    {
        if (slot < plain_slots) return 0;
        const u32 width = slot_extra_bits(slot);
        const u32 bits = offset - slot_base(slot);
        if (slot < m5_first_high_slot) {
            return m5_tree_price(model_.dist_mid + slot_base(slot), bits, width);
        }
        const u32 direct = width - m5_top_bits;
        return m5_tree_price(model_.dist_top[slot - m5_first_high_slot], bits >> direct,
                             m5_top_bits) +
               direct * m5_direct_bit_price;
    }

    const u8* text_;
    const m5_model& model_;
    std::array<std::array<u32, m5_length_classes>, value_slots> slots_;
    std::array<u32, listed_lengths> lengths_; // by length
};

static_assert(price_list<m5_prices<3>>);

} // namespace quarnex
