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

/// The number of bytes by which the last match of an encoder's stream can pass the block's end.
/// The hash searches (4 bytes and more) verify candidates by whole words without a look at the
/// block's end, up to two positions ahead of the match's start; the parses stop at the end.
constexpr u32 max_match_overrun(u32 min_match)
{
    return min_match == 4 ? 5 : 0;
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
