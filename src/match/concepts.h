// match/concepts.h - what a search needs from a method and from a level
#pragma once

#include "common/types.h"

#include <concepts>

namespace quarnex {

/// Table sizes of a level: 2^hash_bits hash values (hash_bits 1 to 32) and, if a value has several
/// candidates, 2^chain_bits of them (chain_bits 0 to 8).
struct search_bits {
    i32 hash_bits;
    i32 chain_bits;
};

/// Receives the parse: literals and matches, in the order of the block.
///
/// A writer is passed and returned by value, so that its state can live in registers during the
/// search.  It never writes past the block's size by more than the output's slack: once the output
/// has reached that size, `full()` holds, and further tokens may be dropped.
///
/// `first_pos` is the number of bytes at the block's start that are stored raw, before the tokens;
/// `min_match` is the shortest match that can be coded.
/// literal() takes the position of the byte; match() takes the position, the length and the
/// distance.
template <class W>
concept token_writer = std::convertible_to<decltype(W::first_pos), u32> &&
    std::convertible_to<decltype(W::min_match), u32> &&
    requires(W writer, const W& const_writer, u32 pos, u32 len, u32 dist)
{
    requires std::same_as<decltype(const_writer.full()), bool>;
    writer.literal(pos);
    writer.match(pos, len, dist);
};

/// The longest distance that a writer can code: its `max_dist`, unlimited if it has none.
template <token_writer W>
inline constexpr u32 max_dist_of = [] {
    if constexpr (requires { W::max_dist; }) return W::max_dist;
    return UINT32_MAX;
}();

} // namespace quarnex
