// coding/last_match.h - matches near the end of a block, for the decoders of methods 3 to 5
#pragma once

#include "coding/min_match.h"
#include "common/copy.h"

#include <algorithm>
#include <cassert>

namespace quarnex {

/// Returns the farthest end of a match in a block of `size` bytes past which a copy may write
/// `overrun` bytes without leaving the block; 0 if there is none.
constexpr u32 whole_copy_end(u32 size, u32 overrun = copy_match_overrun)
{
    return size - std::min(size, overrun);
}

/// Copies a match of any length within a block of `size` bytes and returns its end.  The end is cut
/// one byte past the farthest that an encoder's match can have, so that it shows whether it was
/// one.  Out of line: most blocks have only a few such matches.
template <u32 MinMatch>
[[gnu::cold, gnu::noinline]] u32 copy_last_match(u8* block, u32 size, u32 pos, u32 dist,
                                                 u64 coded_len)
{
    assert(dist <= pos && pos < size);
    const u32 room = size - pos;
    const auto len =
        static_cast<u32>(std::min<u64>(coded_len, room + max_match_overrun(MinMatch) + 1));
    copy_match_within(block + pos, dist, std::min(len, room), room);
    return pos + len;
}

} // namespace quarnex
