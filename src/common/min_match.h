// common/min_match.h - the shortest match that the streams of methods 3 to 5 can hold
#pragma once

#include "common/types.h"

#include <type_traits>

namespace quarnex {

/// The shortest match of a stream of `level`.
constexpr u32 min_match(u32 level)
{
    if (level < 8) return 4;
    return level == 8 ? 3 : 2;
}

/// Calls `decode` with the shortest match of `level`, as a constant.
template <class Decode>
auto with_min_match(u32 level, Decode decode)
{
    switch (min_match(level)) {
    case 4:
        return decode(std::integral_constant<u32, 4>());
    case 3:
        return decode(std::integral_constant<u32, 3>());
    default:
        return decode(std::integral_constant<u32, 2>());
    }
}

} // namespace quarnex
