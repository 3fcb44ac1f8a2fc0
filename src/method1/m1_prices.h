// method1/m1_prices.h - token prices of method 1 for optimal parsing
//
// In units of 1/256 byte.  A token costs its bytes and a share for its flag: 1 unit for a match, 33
// for a literal (1/8 byte and 1 unit), so that the parse prefers matches.  Prices are static; O(1)
// each.
#pragma once

#include "match/cost_parse.h"
#include "method1/m1_format.h"

namespace quarnex {

template <u32 MinMatch>
class m1_prices {
  public:
    void start_window() {}

    u32 literal(u32 /*pos*/) const { return byte + byte / 8 + flag; }

    /// Prices of matches at one distance, by their length.
    class at_distance {
      public:
        explicit at_distance(u32 dist)
            : short_codes_((dist - 1) >> m1_short_dist_bits == 0 ? 1U << m1_short_len_bits : 0),
              medium_codes_((dist - 1) >> m1_medium_dist_bits == 0 ? 1U << m1_medium_len_bits : 0),
              long_price_(flag + byte + integer(dist))
        {
        }

        u32 operator()(u32 len) const
        {
            assert(len >= MinMatch);
            const u32 code = len - MinMatch;
            if (code < short_codes_) return flag + m1_short_bytes * byte;
            if (code < medium_codes_) return flag + m1_medium_bytes * byte;
            if (code < m1_long_escape) return long_price_;
            return long_price_ + integer(code - m1_long_escape);
        }

      private:
        u32 short_codes_;  // number of lengths that a short token can have at the distance
        u32 medium_codes_; // the same of a medium token
        u32 long_price_;   // of a long token without a length integer
    };

    at_distance matches(u32 /*pos*/, u32 dist) const { return at_distance(dist); }

  private:
    static constexpr u32 byte = 256;
    static constexpr u32 flag = 1;

    static constexpr u32 integer(u32 value) { return (1 + m1_integer_tail(value)) * byte; }
};

static_assert(price_list<m1_prices<3>>);

} // namespace quarnex
