// plain/plain_bit_cost.h - logarithms for the prices of methods 4 and 5
#pragma once

#include "common/types.h"

#include <cmath>
#include <vector>

namespace quarnex::test {

/// The unit of prices: 1/4096 bits.
inline constexpr u32 plain_bit = 4096;

/// Returns the logarithm of a count up to 4096; that of zero is -1 in 16 bits, read as unsigned.
inline u32 plain_bit_cost(u32 count)
{
    static const auto costs = [] {
        std::vector<u32> all{0xF000};
        for (u32 i = 1; i <= 4096; ++i) all.push_back(static_cast<u32>(plain_bit * std::log2(i)));
        return all;
    }();
    return costs[count];
}

} // namespace quarnex::test
