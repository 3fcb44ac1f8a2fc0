// plain/m1_plain.h - method 1 told in the simplest code that does it
//
// The judge of the real encoders and of the real decoder: one byte and one flag at a time, no
// tables, no shared code.
#pragma once

#include "plain/plain_search.h"

namespace quarnex::test {

/// The stream of a list of tokens that starts behind the first byte of `block`.
bytes m1_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match);

/// What an encoder gives for a block: the stream, or the block itself.  Levels 8 and 9 read neither
/// `hash_bits` nor `chain_bits`.
bytes m1_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits = 1);

/// Decodes a stream, whatever its length; ends at the end token.  Trusts the stream.
bytes m1_plain_decode(const bytes& stream, u32 min_match);

} // namespace quarnex::test
