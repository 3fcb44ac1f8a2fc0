// plain/m4_plain.h - a plain implementation of method 4
//
// The reference for the real model, coder, encoders and decoder: one symbol at a time, no shared
// code.
#pragma once

#include "plain/plain_range_coder.h"
#include "plain/plain_search.h"

namespace quarnex::test {

/// Frequencies of an alphabet; the coder uses a snapshot of them.
struct m4_plain_model {
    u32 weight; // increment of a symbol's count
    std::vector<u32> counts;
    u32 total;
    u32 period = 2;
    i32 countdown = 2;
    std::vector<u32> cum;    // the snapshot: where each symbol's part of 2^15 starts, and the end
    std::vector<u32> lookup; // a symbol at or below the one of t, by t / 64

    m4_plain_model(u32 symbols, u32 weight_of_one);
    /// Counts a symbol that has just been coded.
    void step(u32 sym);
    void scale();
    /// The symbol whose part holds `t`, which is below the end.
    u32 symbol_of(u32 t) const;
};

/// The encoder's half of the range coder.
struct m4_plain_coder : plain_range_coder {
    /// The part of the range from `lo` to `hi`, in 1/32768.
    void freq(u32 lo, u32 hi);
    /// A value of `count` bits, 1 to 30, all values equally likely; the lowest 24 go first.
    void direct(u32 value, u32 count);
};

/// Returns the stream of tokens that start after the first byte of `block`.
bytes m4_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match,
                      u32 lit_ctx_bits);

/// Returns the payload of a block: its stream, or the block itself.  Levels 8 and 9 read neither
/// `hash_bits` nor `chain_bits`.
bytes m4_plain_encode(const bytes& block, u32 level, u32 lit_ctx_bits, u32 hash_bits,
                      u32 chain_bits);

/// Decodes a stream into `out_len` bytes, 1 or more.  Trusts the stream.
bytes m4_plain_decode(const bytes& stream, usize out_len, u32 min_match, u32 lit_ctx_bits);

} // namespace quarnex::test
