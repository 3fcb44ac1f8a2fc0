// coding/min_match.h - limits of matches by level: the minimum length, and how far the last one may
// pass the block's end
#pragma once

#include "common/types.h"

#include <type_traits>

namespace quarnex {

/// Returns the minimum match length of a stream of `level` with static codes (methods 1 and 2).
constexpr u32 static_min_match(u32 level)
{
    return level < 8 ? 4 : 3;
}

/// Returns the minimum match length of a stream of `level` with adaptive codes (methods 3 to 5).
constexpr u32 min_match(u32 level)
{
    if (level < 8) return 4;
    return level == 8 ? 3 : 2;
}

/// Returns the number of bytes by which the last match of an encoder can pass the block's end, by
/// the minimum match length of its level.
///
/// The hash searches (minimum 4) verify candidates by words of four bytes, three of which can lie
/// past the end.  A look-ahead does so up to two positions further on and may extend what it finds
/// back to the current one.  The parses of levels 8 and 9 stop at the block's end.
constexpr u32 max_match_overrun(u32 min_match)
{
    return min_match == 4 ? 3 + 2 : 0;
}

/// Calls `decode` with min_match(level) as a compile-time constant.
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
