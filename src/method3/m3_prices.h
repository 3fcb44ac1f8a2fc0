// method3/m3_prices.h - token prices of method 3
//
// In bits: the code lengths in force when a window is planned.  Prices of lengths and distances are
// tabulated at the window's start.
#pragma once

#include "match/cost_parse.h"
#include "method3/m3_tokens.h"

#include <array>

namespace quarnex {

template <u32 MinMatch>
class m3_prices {
  public:
    /// Prices for the block `text`.
    m3_prices(const u8* text, const m3_encoder_models& models) : text_(text), models_(models) {}

    void start_window()
    {
        for (u32 len = MinMatch; len < tabulated_lengths; ++len) lengths_[len] = length(len);
        for (u32 slot = 0; slot < models_.distance.counts.symbols; ++slot) {
            distance_slots_[slot] = slot_price(models_.distance, slot);
        }
    }

    u32 literal(u32 pos) const { return main(text_[pos]); }

    /// The prices of matches at one distance.
    class at_distance {
      public:
        at_distance(const m3_prices& prices, u32 dist)
            : prices_(prices), distance_(prices.distance_slots_[value_slot(dist - 1)])
        {
        }

        u32 operator()(u32 len) const
        {
            return (len < tabulated_lengths ? prices_.lengths_[len] : prices_.length(len)) +
                   distance_;
        }
        price_run run(u32 len) const
        {
            if (len >= tabulated_lengths) return {};
            return {prices_.lengths_.data() + len, tabulated_lengths - len, distance_};
        }

      private:
        const m3_prices& prices_;
        u32 distance_;
    };

    at_distance matches(u32 /*pos*/, u32 dist) const { return {*this, dist}; }

  private:
    // Every alphabet has the slots of all tabulated lengths.
    static_assert(value_slot(tabulated_lengths - 1 - MinMatch - short_lengths) < slot_count(0));

    u32 main(u32 symbol) const { return models_.main.tables.codes[symbol].length; }

    u32 length(u32 len) const
    {
        const u32 above_min = len - MinMatch;
        if (above_min < short_lengths) return main(literal_symbols + above_min);
        return main(long_length_symbol) +
               slot_price(models_.length, value_slot(above_min - short_lengths));
    }

    /// Returns the price of any value of a slot: the slot's code and extra bits.
    template <class Model>
    static u32 slot_price(const Model& model, u32 slot)
    {
        const u32 extra = slot < plain_slots ? 0 : slot_extra_bits(slot);
        return model.tables.codes[slot].length + extra;
    }

    const u8* text_;
    const m3_encoder_models& models_;
    std::array<u32, tabulated_lengths> lengths_;  // prices by length
    std::array<u32, value_slots> distance_slots_; // prices by slot
};

static_assert(price_list<m3_prices<3>>);

} // namespace quarnex
