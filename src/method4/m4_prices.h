// method4/m4_prices.h - token prices of method 4
//
// In 1/4096 bits: the logarithm of a model's total less that of the symbol's count, both divided by
// eight.  Totals are those at the start of a window, counts the current ones, which do not change
// while a window is planned.  So prices are tabulated: those of distances and long lengths at the
// window's start, those of short lengths when their context first occurs.
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
        tabulate_distances();
        length_ = base(models_.length);
        known_.fill(false);
        for (u32 len = first_long; len < tabulated_lengths; ++len) {
            long_lengths_[len - first_long] = long_length(len);
        }
    }

    u32 literal(u32 pos) const { return main(context(pos), text_[pos]); }

    /// The prices of matches at one position and distance.
    class at_distance {
      public:
        at_distance(const m4_prices& prices, u32 context, u32 dist)
            : prices_(prices), context_(context),
              distance_(prices.distance_slots_[value_slot(dist - 1)])
        {
        }

        u32 operator()(u32 len) const { return prices_.length(context_, len) + distance_; }
        price_run run(u32 len) const
        {
            if (len < first_long) {
                return {prices_.short_lengths_[context_].data() + len - MinMatch, first_long - len,
                        distance_};
            }
            if (len >= tabulated_lengths) return {};
            return {prices_.long_lengths_.data() + len - first_long, tabulated_lengths - len,
                    prices_.main(context_, long_length_symbol) + distance_};
        }

      private:
        const m4_prices& prices_;
        u32 context_;
        u32 distance_;
    };

    at_distance matches(u32 pos, u32 dist)
    {
        const u32 here = context(pos);
        if (!known_[here]) tabulate_short_lengths(here);
        return {*this, here, dist};
    }

  private:
    /// Counts and totals are divided by 2^step_bits, so that totals fit into the table.
    static constexpr u32 step_bits = 3;
    static constexpr u32 bit = 4096;

    static constexpr u32 first_long = MinMatch + short_lengths;

    // Every alphabet has the slots of all tabulated lengths.
    static_assert(value_slot(tabulated_lengths - 1 - MinMatch - short_lengths) < slot_count(0));

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
        if (above_min < short_lengths) return short_lengths_[context][above_min];
        return main(context, long_length_symbol) + long_length(len);
    }

    /// Returns the price of a long length without its main symbol.  Extra bits are not priced.
    u32 long_length(u32 len) const
    {
        return length_ - share(models_.length, value_slot(len - first_long));
    }

    void tabulate_short_lengths(u32 context)
    {
        known_[context] = true;
        for (u32 above_min = 0; above_min < short_lengths; ++above_min) {
            short_lengths_[context][above_min] = main(context, literal_symbols + above_min);
        }
    }

    void tabulate_distances()
    {
        const u32 total = base(models_.distance);
        for (u32 slot = 0; slot < models_.distance.counts.symbols; ++slot) {
            const u32 extra = slot < plain_slots ? 0 : slot_extra_bits(slot);
            distance_slots_[slot] = total + extra * bit - share(models_.distance, slot);
        }
    }

    const u8* text_;
    u32 mask_;
    const m4_enc_state& models_;
    std::array<u32, m4_contexts> main_; // base prices
    u32 length_;
    std::array<u32, value_slots> distance_slots_; // prices by slot
    std::array<bool, m4_contexts> known_;         // contexts whose short lengths are tabulated
    std::array<std::array<u32, short_lengths>, m4_contexts> short_lengths_;
    std::array<u32, tabulated_lengths - first_long> long_lengths_;
};

static_assert(price_list<m4_prices<3>>);

} // namespace quarnex
