// method2/m2_prices.h - token prices of method 2 for optimal parsing
//
// The exact sizes in bits, except that each literal of a run is priced as a literal token.  Prices
// are static; O(1) each.
#pragma once

#include "match/cost_parse.h"
#include "method2/m2_format.h"

#include <array>

namespace quarnex {

template <u32 MinMatch>
class m2_prices {
  public:
    void start_window() {}

    u32 literal(u32 /*pos*/) const { return m2_literal_bits; }

    /// Prices of matches at one distance, by their length.
    class at_distance {
      public:
        explicit at_distance(u32 dist)
            : distance_bits_(m2_class_bits + m2_extra_bits[m2_distance_class(dist)])
        {
        }

        u32 operator()(u32 len) const
        {
            return m2_gamma_bits(m2_match_code<MinMatch>(len)) + distance_bits_;
        }
        price_run run(u32 len) const
        {
            if (len >= tabulated_lengths) return {};
            return {lengths.data() + len, tabulated_lengths - len, distance_bits_};
        }

      private:
        u32 distance_bits_;
    };

    at_distance matches(u32 /*pos*/, u32 dist) const { return at_distance(dist); }

  private:
    static constexpr std::array<u32, tabulated_lengths> lengths = [] {
        std::array<u32, tabulated_lengths> bits{};
        for (u32 len = MinMatch; len < bits.size(); ++len) {
            bits[len] = m2_gamma_bits(m2_match_code<MinMatch>(len));
        }
        return bits;
    }();
};

static_assert(price_list<m2_prices<3>>);

} // namespace quarnex
