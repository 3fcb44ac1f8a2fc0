// method5/m5_coder.h - the binary range decoder of method 5: single bits, bit trees, chains
//
// Each binary decision divides the interval in two, by the probability of a 0.  Multi-bit numbers
// are coded bit by bit through a bit tree: the model of each bit is selected by the bits above it.
// The encoder does the same in two passes (m5_learn.h, m5_steps.h).
#pragma once

#include "coding/range_coder.h"
#include "method5/m5_model.h"

namespace quarnex {

/// Maximum bytes that the decoder shifts in a token, and reads at once in its last step.
/// The longest token is a match, whose distance has up to ten modelled bits, or eight and direct
/// ones.  A modelled bit shifts up to two bytes, a group of direct bits up to three, of four.
inline constexpr u32 m5_token_max_bytes =
    2 * (1 + 2 * m5_max_length_bits + m5_slot_bits + slot_extra_bits(m5_first_high_slot)) + 4;

/// Decodes one bit by its model, with a branch on the bit: for well-predicted bits.
[[gnu::always_inline]] inline u32 m5_decode_bit(range_decoder& decoder, m5_prob_pair& pair)
{
    const u32 bound = pair.mean() * (decoder.range >> m5_prob_bits);
    if (decoder.code < bound) {
        decoder.range = bound;
        pair.update(0);
        normalize(decoder);
        return 0;
    }
    decoder.code -= bound;
    decoder.range -= bound;
    pair.update(1);
    normalize(decoder);
    return 1;
}

// Bits that are close to random would mispredict a branch every other time.  They are decoded in
// chains of branch-free steps: a step computes both outcomes and selects one by conditional moves.
// It also loads both possible next pairs, so that the latency of the load overlaps the computation
// of the bit.

/// All that depends on a bit.
struct m5_outcome {
    u32 range;
    u32 code;
    u32 halves; // of the next pair
    u32 mean;   // of the next pair
    u32 target; // which way the current pair moves
};

/// Replaces `if_0` by `if_1` if the bit is 1, that is, if the code is not below the range of
/// `if_0`. Shifts the bit into `bits`.
[[gnu::always_inline]] inline void m5_decide_portably(m5_outcome& if_0, const m5_outcome& if_1,
                                                      u32& bits)
{
    const bool one = if_0.code >= if_0.range;
    if_0 = one ? if_1 : if_0;
    bits = bits << 1 | (one ? 1 : 0);
}

#if defined(__x86_64__)

/// The same.  (Compilers would turn the selection into a branch.)
[[gnu::always_inline]] inline void m5_decide(m5_outcome& if_0, const m5_outcome& if_1, u32& bits)
{
    bits <<= 1;
    asm("cmp %[range], %[code]\n\t"
        "cmovae %[range_1], %[range]\n\t"
        "cmovae %[mean_1], %[mean]\n\t"
        "cmovae %[code_1], %[code]\n\t"
        "cmovae %[halves_1], %[halves]\n\t"
        "cmovae %[target_1], %[target]\n\t"
        "sbb $-1, %[bits]"
        : [range] "+&r"(if_0.range), [code] "+&r"(if_0.code), [halves] "+&r"(if_0.halves),
          [mean] "+&r"(if_0.mean), [target] "+&r"(if_0.target), [bits] "+r"(bits)
        : [range_1] "r"(if_1.range), [code_1] "r"(if_1.code), [halves_1] "r"(if_1.halves),
          [mean_1] "r"(if_1.mean), [target_1] "r"(if_1.target)
        : "cc");
}

#else

[[gnu::always_inline]] inline void m5_decide(m5_outcome& if_0, const m5_outcome& if_1, u32& bits)
{
    m5_decide_portably(if_0, if_1, bits);
}

#endif

/// A chain of steps.  Holds the pair of the next step.
class m5_decoder_chain {
  public:
    explicit m5_decoder_chain(const m5_prob_pair& first)
        : halves_(first.halves), mean_(first.mean())
    {
    }

    /// Decodes a bit by the chain's pair, whose place is `at`, and shifts the bit into `bits`.  The
    /// bit selects one of the two pairs at `next`, which must be readable even if the chain ends.
    /// The selected pair must not be the one at `at`: it is loaded before that is updated.
    [[gnu::always_inline]] void step(range_decoder& decoder, m5_prob_pair* at,
                                     const m5_prob_pair* next, u32& bits)
    {
        const u32 bound = mean_ * (decoder.range >> m5_prob_bits);
        const u64 both = next[0].halves | u64{next[1].halves} << 32;
        const u64 sums = both + (both << 16); // twice each mean in the upper half of its word
        m5_outcome outcome{bound, decoder.code, static_cast<u32>(both),
                           static_cast<u32>(sums) >> 17, m5_prob_pair::to_full};
        const m5_outcome if_1{decoder.range - bound, decoder.code - bound,
                              static_cast<u32>(both >> 32), static_cast<u32>(sums >> 49),
                              m5_prob_pair::to_zero};
        m5_decide(outcome, if_1, bits);
        at->halves = m5_prob_pair::moved(halves_, outcome.target);
        halves_ = outcome.halves;
        mean_ = outcome.mean;
        decoder.range = outcome.range;
        decoder.code = outcome.code;
        normalize(decoder);
    }

  private:
    u32 halves_;
    u32 mean_;
};

/// Decodes a number of `width` bits through a bit tree.
[[gnu::always_inline]] inline u32 m5_decode_tree(range_decoder& decoder, m5_prob_pair* tree,
                                                 u32 width)
{
    u32 index = 1;
    m5_decoder_chain chain(tree[1]);
#pragma GCC unroll 8
    for (u32 place = 0; place < width; ++place) {
        const m5_prob_pair* const next = tree + (place + 1 < width ? 2 * index : 0);
        chain.step(decoder, tree + index, next, index);
    }
    return index - (1U << width);
}

} // namespace quarnex
