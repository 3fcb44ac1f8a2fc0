// method5/m5_coder.h - binary decisions in a range coder: single bits, chains, bit trees
//
// The interval is cut in two by the probability of a 0.
#pragma once

#include "coding/range_coder.h"
#include "method5/m5_model.h"

namespace quarnex {

/// Probabilities are in units of 2^-15.
inline constexpr u32 m5_prob_bits = 15;

/// More bytes than the coder moves or loads in a token.  The longest is a match, whose distance has
/// up to ten modelled bits, or eight and direct ones; a modelled bit moves up to two bytes, a group
/// of direct bits up to three.
inline constexpr u32 m5_token_max_bytes =
    2 * (1 + 2 * m5_max_length_bits + m5_slot_bits + slot_extra_bits(m5_first_high_slot)) + 3;

/// Encodes one bit by its model.
inline void m5_encode_bit(range_encoder& to, m5_prob_pair& pair, u32 bit)
{
    const u32 bound = pair.mean() * (to.range >> m5_prob_bits);
    const u32 one = 0 - bit; // all ones for a 1
    to.low += bound & one;
    to.range = bound + ((to.range - 2 * bound) & one);
    pair.update(bit);
    normalize(to);
}

/// Encodes `value`, a number of `width` bits, through the tree of pairs 1 to 2^width - 1.
inline void m5_encode_tree(range_encoder& to, m5_prob_pair* tree, u32 value, u32 width)
{
    u32 index = 1;
    for (u32 place = width; place-- != 0;) {
        const u32 bit = value >> place & 1;
        m5_encode_bit(to, tree[index], bit);
        index = 2 * index + bit;
    }
}

/// Decodes one bit by its model, with a branch on it: for bits that are easy to guess.
[[gnu::always_inline]] inline u32 m5_decode_bit(range_decoder& from, m5_prob_pair& pair)
{
    const u32 bound = pair.mean() * (from.range >> m5_prob_bits);
    if (from.code < bound) {
        from.range = bound;
        pair.update(0);
        normalize(from);
        return 0;
    }
    from.code -= bound;
    from.range -= bound;
    pair.update(1);
    normalize(from);
    return 1;
}

// Bits that are hard to guess are decoded without a branch, in a chain of steps.  While a step
// waits for its bit, the two pairs between which the bit chooses have come from memory already.

/// What a bit decides.
struct m5_outcome {
    u32 range;
    u32 code;
    u32 halves;  // of the next pair
    u32 mean;    // of the next pair
    u32 towards; // where the current pair moves
};

/// Makes `if_0` what the next step goes on with, and shifts the bit into `bits`: 1 if the code is
/// not below the range of `if_0`.
[[gnu::always_inline]] inline void m5_decide_portably(m5_outcome& if_0, const m5_outcome& if_1,
                                                      u32& bits)
{
    const bool one = if_0.code >= if_0.range;
    if_0 = one ? if_1 : if_0;
    bits = bits << 1 | (one ? 1 : 0);
}

#if defined(__x86_64__)

/// The same.  (Compilers take the choice for one that is easy to guess, and branch.)
[[gnu::always_inline]] inline void m5_decide(m5_outcome& if_0, const m5_outcome& if_1, u32& bits)
{
    bits <<= 1;
    asm("cmp %[range], %[code]\n\t"
        "cmovae %[range_1], %[range]\n\t"
        "cmovae %[mean_1], %[mean]\n\t"
        "cmovae %[code_1], %[code]\n\t"
        "cmovae %[halves_1], %[halves]\n\t"
        "cmovae %[towards_1], %[towards]\n\t"
        "sbb $-1, %[bits]"
        : [range] "+&r"(if_0.range), [code] "+&r"(if_0.code), [halves] "+&r"(if_0.halves),
          [mean] "+&r"(if_0.mean), [towards] "+&r"(if_0.towards), [bits] "+r"(bits)
        : [range_1] "r"(if_1.range), [code_1] "r"(if_1.code), [halves_1] "r"(if_1.halves),
          [mean_1] "r"(if_1.mean), [towards_1] "r"(if_1.towards)
        : "cc");
}

#else

[[gnu::always_inline]] inline void m5_decide(m5_outcome& if_0, const m5_outcome& if_1, u32& bits)
{
    m5_decide_portably(if_0, if_1, bits);
}

#endif

/// A chain of steps.  It holds the pair of the next one.
class m5_decoder_chain {
  public:
    explicit m5_decoder_chain(const m5_prob_pair& first)
        : halves_(first.halves), mean_(first.mean())
    {
    }

    /// Decodes a bit by the chain's pair, which is at `at`, and shifts it into `bits`.  It chooses
    /// between the two pairs at `next`, which are there even if the chain ends.  The one at `at`
    /// can't be chosen: its new value would come too late.
    [[gnu::always_inline]] void step(range_decoder& from, m5_prob_pair* at,
                                     const m5_prob_pair* next, u32& bits)
    {
        const u32 bound = mean_ * (from.range >> m5_prob_bits);
        const u64 both = next[0].halves | u64{next[1].halves} << 32;
        const u64 sums = both + (both << 16); // twice each mean in the upper half of its word
        m5_outcome outcome{bound, from.code, static_cast<u32>(both), static_cast<u32>(sums) >> 17,
                           m5_prob_pair::to_full};
        const m5_outcome if_1{from.range - bound, from.code - bound, static_cast<u32>(both >> 32),
                              static_cast<u32>(sums >> 49), m5_prob_pair::to_zero};
        m5_decide(outcome, if_1, bits);
        at->halves = m5_prob_pair::moved(halves_, outcome.towards);
        halves_ = outcome.halves;
        mean_ = outcome.mean;
        from.range = outcome.range;
        from.code = outcome.code;
        normalize(from);
    }

  private:
    u32 halves_;
    u32 mean_;
};

/// Decodes a number of `width` bits through a tree.
[[gnu::always_inline]] inline u32 m5_decode_tree(range_decoder& from, m5_prob_pair* tree, u32 width)
{
    u32 index = 1;
    m5_decoder_chain chain(tree[1]);
#pragma GCC unroll 8
    for (u32 place = 0; place < width; ++place) {
        const m5_prob_pair* const next = tree + (place + 1 < width ? 2 * index : 0);
        chain.step(from, tree + index, next, index);
    }
    return index - (1U << width);
}

} // namespace quarnex
