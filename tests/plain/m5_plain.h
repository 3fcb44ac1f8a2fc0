// plain/m5_plain.h - method 5 told in the simplest code that does it
//
// The judge of the real coder, encoders and decoder: one bit at a time, no shared code.
#pragma once

#include "plain/plain_range_coder.h"
#include "plain/plain_search.h"

namespace quarnex::test {

/// What is known about one decision: two guesses at the probability of a 0, in 1/32768.
struct m5_plain_pair {
    u32 fast = 0x4000;
    u32 slow = 0x4000;

    u32 mean() const { return (fast + slow) / 2; }
    void learn(bool bit);
};

/// The encoder's half of the range coder.
struct m5_plain_coder : plain_range_coder {
    void bit(m5_plain_pair& pair, bool bit);
};

/// The stream of a list of tokens that starts behind the first two bytes of `block`.
bytes m5_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match);

/// What an encoder gives for a block: the stream, or the block itself.  Levels 8 and 9 read neither
/// `hash_bits` nor `chain_bits`.
bytes m5_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits);

/// What level 9 makes of a block, if it is no longer than that, and the positions at which the
/// windows of its parse start.
struct m5_plain_parse {
    bytes stream;
    std::vector<u32> window_starts;
};
m5_plain_parse m5_plain_parse_forward(const bytes& block);

/// Decodes a stream into `out_len` bytes.  Trusts the stream.
bytes m5_plain_decode(const bytes& stream, usize out_len, u32 min_match);

} // namespace quarnex::test
