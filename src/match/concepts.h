// match/concepts.h - what a search asks of a method and of a level
#pragma once

#include "common/types.h"

#include <concepts>

namespace quarnex {

/// The sizes of a level's table: 2^hash_bits hash values (hash_bits 1 to 32) and, where there are
/// several, 2^chain_bits candidates for each (chain_bits 0 to 8).
struct search_bits {
    i32 hash_bits;
    i32 chain_bits;
};

/// Where a search puts what it decides: literals and matches, in the order of the block.
///
/// A writer is passed and returned by value, so that its state can live in registers while the
/// search runs.  It never grows past the block's size by more than the slack of the output: once
/// the output has reached the block's size `full()` holds, and further tokens may be dropped.
///
/// `first_pos` is the number of bytes at the block's start that are sent raw, before the tokens;
/// `min_match` is the shortest match that it has a code for.
/// literal() gets the position of the byte; match() the position, the length, and the distance back
/// to the same bytes.
template <class W>
concept token_writer = std::convertible_to<decltype(W::first_pos), u32> &&
    std::convertible_to<decltype(W::min_match), u32> &&
    requires(W writer, const W& so_far, u32 pos, u32 len, u32 dist)
{
    requires std::same_as<decltype(so_far.full()), bool>;
    writer.literal(pos);
    writer.match(pos, len, dist);
};

/// The longest distance that a writer has a code for: its `max_dist`, or any if it names none.
template <token_writer W>
inline constexpr u32 longest_dist = [] {
    if constexpr (requires { W::max_dist; }) return W::max_dist;
    return UINT32_MAX;
}();

} // namespace quarnex
