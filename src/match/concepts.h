// match/concepts.h - what a search asks of a method
#pragma once

#include "common/types.h"

#include <concepts>

namespace quarnex {

/// Where a search puts what it decides: literals and matches, in the order of the block.
///
/// A writer is passed and returned by value, so that its state can live in registers while the
/// search runs.  It never grows past the block's size by more than the slack of the output: once
/// the output has reached the block's size `full()` holds, and further tokens may be dropped.
template <class W>
concept token_writer = requires(W w, const W cw, u32 pos, u32 len, u32 dist)
{
    requires std::convertible_to<decltype(W::first_pos), u32>; // bytes sent raw before the tokens
    {
        cw.full()
        } -> std::same_as<bool>; // output reached the block's size
    w.literal(pos);              // the byte at pos
    w.match(pos, len, dist);     // len bytes from dist back
};

} // namespace quarnex
