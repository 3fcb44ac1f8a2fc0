// plain/m3_plain.h - a plain implementation of method 3
//
// The reference for the real model, encoders and decoder: one bit at a time, no look-up tables, no
// shared code.
#pragma once

#include "plain/plain_search.h"

#include <span>

namespace quarnex::test {

/// A symbol and its frequency; after a rebuild, its code length.
struct m3_plain_pair {
    u32 freq;
    u32 sym;
    bool operator==(const m3_plain_pair&) const = default;
};
using m3_plain_pairs = std::vector<m3_plain_pair>;

/// The depth and the seed that a rebuild gives to the sort.
u32 m3_plain_sort_depth(usize size);
inline constexpr u32 m3_plain_sort_seed = 123456789;

/// Sorts by rising `freq`, in the format's order of equal ones.  Returns the new seed.
u32 m3_plain_sort(std::span<m3_plain_pair> pairs, u32 depth, u32 seed);
/// The fallback of the sort when `depth` is used up.  Expects a pair or more.
void m3_plain_heap_sort(std::span<m3_plain_pair> pairs);
/// Turns every `freq` into a code length.  Expects two pairs or more.
void m3_plain_code_lengths(std::span<m3_plain_pair> pairs);

/// An encoder stores a block when a rebuild makes a longer code, whether it would be used or not.
inline constexpr u32 m3_plain_longest_code = 30;

/// An adaptive prefix code, rebuilt from the counts.
struct m3_plain_model {
    std::vector<u32> counts;
    u32 total;
    u32 period = 0;
    i32 countdown = 0;
    m3_plain_pairs pairs; // by falling code length; their order stays from rebuild to rebuild

    // For the encoder, by symbol.
    std::vector<u32> code_len;
    std::vector<u32> code;
    // For the decoder, by code length, from 0 to the longest one.
    std::vector<u32> first_code;
    std::vector<u32> first_index; // into pairs; meaningless where no code has the length

    explicit m3_plain_model(u32 symbols);
    /// Counts a symbol that has just been coded.
    void step(u32 sym);
    void rebuild(bool full_sort);

    u32 longest_code() const { return pairs[0].freq; }
    /// The length of the code that starts these ten bits; 11 if it is longer than they are.
    u32 length_of(u32 ten_bits) const;
};

/// Returns the stream of tokens that start after the first byte of `block`, even if a code gets too
/// long.
bytes m3_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match);

/// Returns the payload of a block: its stream, or the block itself.  Levels 8 and 9 read neither
/// `hash_bits` nor `chain_bits`.
bytes m3_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits);

/// Decodes a stream into `out_len` bytes, 1 or more.  Trusts the stream.
bytes m3_plain_decode(const bytes& stream, usize out_len, u32 min_match);

} // namespace quarnex::test
