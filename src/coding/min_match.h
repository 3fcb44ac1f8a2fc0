// coding/min_match.h - the shortest match that a stream can hold
#pragma once

#include "common/types.h"

#include <type_traits>

namespace quarnex {

/// The shortest match of a stream of `level` whose codes are static (methods 1 and 2).
constexpr u32 static_min_match(u32 level)
{
    return level < 8 ? 4 : 3;
}

/// The shortest match of a stream of `level` whose codes adapt (methods 3 to 5).
constexpr u32 min_match(u32 level)
{
    if (level < 8) return 4;
    return level == 8 ? 3 : 2;
}

/// Calls `decode` with min_match(level), as a constant.
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
