// plain/m1_plain.h - reference encoder and decoder of method 1, in the simplest code
//
// The real encoders and decoder are tested against it.  One byte and one flag at a time; no tables,
// no code shared with src/.
#pragma once

#include "plain/plain_search.h"

namespace quarnex::test {

/// Returns the stream of `tokens`, which encode `block` after its first byte.
bytes m1_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match);

/// Returns the payload of a block: its stream, or the block itself.  Levels 8 and 9 ignore
/// `hash_bits` and `chain_bits`.
bytes m1_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits = 1);

/// Decodes a valid stream up to its end token, without clipping the last match.
bytes m1_plain_decode(const bytes& stream, u32 min_match);

} // namespace quarnex::test
