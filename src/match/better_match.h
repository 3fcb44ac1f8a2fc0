// match/better_match.h - which of two matches is worth more
//
// A heuristic for the levels without prices (0 to 7), in constant time.  Comparing lengths alone
// would trade a near match for a distant one of the same length, and a distance has more bits to
// code than a length.
#pragma once

#include "common/types.h"

namespace quarnex {

/// True if a candidate that is `longer` bytes longer than the current match (negative: shorter), at
/// distance `cand_dist`, should replace the current one at distance `dist`.
///
/// One byte of length is worth a factor of eight in distance, either way; two more bytes always
/// win.
constexpr bool better_match(i32 longer, u32 dist, u32 cand_dist)
{
    if (longer >= 2) return true;
    if (longer >= 0 && cand_dist < dist) return true;
    if (longer == 1) return dist > cand_dist >> 3;
    return longer >= -1 && cand_dist < dist >> 3;
}

} // namespace quarnex
