// method1/m1_prices.h - token prices of method 1 for optimal parsing
//
// In units of 1/256 byte.  A token costs its bytes and a share for its flag: 1 unit for a match, 33
// for a literal (1/8 byte and 1 unit), so that the parse prefers matches.  Prices are static; O(1)
// each.  Those of lengths below tabulated_lengths are in tables, one for each class of distances.
#pragma once

#include "match/cost_parse.h"
#include "method1/m1_format.h"

#include <array>

namespace quarnex {

template <u32 MinMatch>
class m1_prices {
  public:
    void start_window() {}

    u32 literal(u32 /*pos*/) const { return byte + byte / 8 + flag; }

    /// Prices of matches at one distance, by their length.
    class at_distance {
      public:
        explicit at_distance(u32 dist) : dist_(dist) {}

        u32 operator()(u32 len) const { return match(len, dist_); }
        price_run run(u32 len) const
        {
            if (len >= tabulated_lengths) return {};
            return {tables[dist_class(dist_)].data() + len, tabulated_lengths - len, 0};
        }

      private:
        u32 dist_;
    };

    at_distance matches(u32 /*pos*/, u32 dist) const { return at_distance(dist); }

  private:
    static constexpr u32 byte = 256;
    static constexpr u32 flag = 1;

    static constexpr u32 integer(u32 value) { return (1 + m1_integer_tail(value)) * byte; }

    static constexpr u32 short_dists = 1U << m1_short_dist_bits;
    static constexpr u32 medium_dists = 1U << m1_medium_dist_bits;

    static constexpr u32 match(u32 len, u32 dist)
    {
        assert(len >= MinMatch);
        const u32 code = len - MinMatch;
        if (code < 1U << m1_short_len_bits && dist <= short_dists) {
            return flag + m1_short_bytes * byte;
        }
        if (code < 1U << m1_medium_len_bits && dist <= medium_dists) {
            return flag + m1_medium_bytes * byte;
        }
        const u32 price = flag + byte + integer(dist);
        return code < m1_long_escape ? price : price + integer(code - m1_long_escape);
    }

    /// The last distance of each class.  All distances of a class have the same prices: the same
    /// tokens can code them, and a long token has the same number of bytes.
    static constexpr std::array<u32, 7> class_ends{0x7F,     short_dists, 0x3FFF,    medium_dists,
                                                   0x1FFFFF, 0xFFFFFFF,   UINT32_MAX};
    static constexpr u32 dist_class(u32 dist)
    {
        return m1_integer_tail(dist) + (dist > short_dists) + (dist > medium_dists);
    }

    using length_table = std::array<u32, tabulated_lengths>;
    static constexpr std::array<length_table, class_ends.size()> tables = [] {
        std::array<length_table, class_ends.size()> result{};
        for (const u32 dist : class_ends) {
            length_table& table = result[dist_class(dist)];
            for (u32 len = MinMatch; len < table.size(); ++len) table[len] = match(len, dist);
        }
        return result;
    }();
};

static_assert(price_list<m1_prices<3>>);

} // namespace quarnex
