// method4/m4_prices.h - token prices of method 4
//
// In 1/4096 bits: the logarithm of a model's total less that of the symbol's count, both divided by
// eight.  Totals are those at the start of a window, counts the current ones.
//
// A count below eight reads entry 0 of the table, which is larger than any total's logarithm, so
// the price is negative (modulo 2^32): symbols hardly seen in their context look cheap.  That is a
// flaw of the estimate, but the choices of levels 8 and 9, and so their streams, depend on it.
#pragma once

#include "coding/bit_cost.h"
#include "match/cost_parse.h"
#include "method4/m4_model.h"

#include <array>

namespace quarnex {

template <u32 MinMatch>
class m4_prices {
  public:
    /// Prices for the block `text`, whose contexts are masked by `mask`.
    m4_prices(const u8* text, u32 mask, const m4_enc_state& models)
        : text_(text), mask_(mask), models_(models)
    {
    }

    void start_window()
    {
        for (u32 context = 0; context <= mask_; ++context) {
            main_[context] = base(models_.main[context]);
        }
        distance_ = base(models_.distance);
        length_ = base(models_.length);
    }

    u32 literal(u32 pos) const { return main(context(pos), text_[pos]); }

    /// The prices of matches at one position and distance.
    class at_distance {
      public:
        at_distance(const m4_prices& prices, u32 context, u32 dist)
            : prices_(prices), context_(context), distance_(prices.distance(dist - 1))
        {
        }

        u32 operator()(u32 len) const { return prices_.length(context_, len) + distance_; }

      private:
        const m4_prices& prices_;
        u32 context_;
        u32 distance_;
    };

    at_distance matches(u32 pos, u32 dist) const { return {*this, context(pos), dist}; }

  private:
    /// Counts and totals are divided by 2^step_bits, so that totals fit into the table.
    static constexpr u32 step_bits = 3;
    static constexpr u32 bit = 4096;

    template <class Model>
    static u32 base(const Model& model)
    {
        return bit_cost[model.counts.total >> step_bits];
    }
    /// Returns the deduction of a symbol from its model's base price.
    template <class Model>
    static u32 share(const Model& model, u32 symbol)
    {
        return bit_cost[model.counts.counts[symbol] >> step_bits];
    }

    u32 context(u32 pos) const { return text_[pos - 1] & mask_; }
    u32 main(u32 context, u32 symbol) const
    {
        return main_[context] - share(models_.main[context], symbol);
    }

    u32 length(u32 context, u32 len) const
    {
        const u32 above_min = len - MinMatch;
        if (above_min < short_lengths) return main(context, literal_symbols + above_min);
        // The extra bits of a length are not priced.
        const u32 slot = value_slot(above_min - short_lengths);
        return main(context, long_length_symbol) + length_ - share(models_.length, slot);
    }

    u32 distance(u32 offset) const
    {
        const u32 slot = value_slot(offset);
        const u32 extra = slot < plain_slots ? 0 : slot_extra_bits(slot);
        return distance_ + extra * bit - share(models_.distance, slot);
    }

    const u8* text_;
    u32 mask_;
    const m4_enc_state& models_;
    std::array<u32, m4_contexts> main_; // base prices
    u32 distance_;
    u32 length_;
};

static_assert(price_list<m4_prices<3>>);

} // namespace quarnex
