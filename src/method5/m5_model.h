// method5/m5_model.h - adaptive probabilities of binary decisions
//
// Each decision of a token has a model selected by its context.  A model is a dual-rate estimator:
// the mean of two exponentially decaying averages of the bits seen.  The fast one (rate 1/8) adapts
// to local statistics, the slow one (rate 1/64) is precise where they are stationary; one average,
// as in the textbook form, has to compromise.  Updates need no division and no counts.
//
// Memory: 187 KiB.
#pragma once

#include "coding/codec_state.h"
#include "method5/m5_format.h"

namespace quarnex {

/// Probabilities are in units of 2^-15.
inline constexpr u32 m5_prob_bits = 15;

/// The model of one binary decision: two estimates of the probability that the bit is 0, in units
/// of 1/32768, the fast one in the lower half of a word, the slow one in the upper half.
///
/// Both are loaded, updated and stored together (SIMD within a register).  No sum below carries
/// from one half to the other.
struct m5_prob_pair {
    u32 halves = 0x40004000;

    constexpr u32 fast() const { return halves & 0xFFFF; }
    constexpr u32 slow() const { return halves >> 16; }

    /// Returns the probability used for coding.
    constexpr u32 mean() const { return (halves + (halves << 16)) >> 17; }

    constexpr void update(u32 bit) { halves = moved(halves, bit != 0 ? to_zero : to_full); }

    // A bit moves an estimate e to e - ((e - limit) >> shift), with an arithmetic shift; the limit
    // is 0 or 32768 - (2^shift - 1), which leaves the same margin at both ends.  moved() adds
    // 32768 - limit instead, so that no half is negative, and corrects the result by the shifted
    // 32768.

    static constexpr u32 to_zero = 0x80008000; // 32768 - limit of both halves, for a 1
    static constexpr u32 to_full = 0x003F0007; // the same for a 0

    /// Returns both estimates moved towards `target`, to_zero or to_full.
    /// (Word: u32 or a vector of them.)
    template <class Word>
    static constexpr Word moved(const Word& halves, const Word& target)
    {
        constexpr u32 fast_shift = 3;
        constexpr u32 slow_shift = 6;
        constexpr u32 fast_mask = 0xFFFFU >> fast_shift;
        constexpr u32 slow_mask = 0xFFFFU >> slow_shift << 16;
        constexpr u32 correction = 0x8000U >> fast_shift | 0x8000U >> slow_shift << 16;
        const Word rest = halves + target;
        const Word step = (rest >> fast_shift & fast_mask) + (rest >> slow_shift & slow_mask);
        return halves + correction - step;
    }
};
static_assert(sizeof(m5_prob_pair) == 4);

/// The models of half a literal, by the bit's place and the twelve bits before it.
using m5_nibble_models = m5_prob_pair[m5_nibble_bits][m5_literal_contexts];

/// All models of a block.  Initially all probabilities are 1/2.
struct m5_model {
    m5_nibble_models lit_high;
    m5_nibble_models lit_low;
    /// Literal or match, by the previous byte.
    m5_prob_pair match_flag[m5_flag_contexts];
    /// Bits of a length's unary prefix, from index 1.
    m5_prob_pair len_prefix[m5_max_length_bits + 1];
    /// Bits of a length, by their number less one and by place.
    m5_prob_pair len_bits[m5_max_length_bits][m5_max_length_bits];
    /// Bit trees of slots, by length class.
    m5_prob_pair dist_slot[m5_length_classes][value_slots];
    /// Bit trees of the extra bits of the middle slots; a slot's tree starts at slot_base().
    m5_prob_pair dist_mid[slot_base(m5_first_high_slot)];
    /// Bit trees of the top extra bits of the high slots.
    m5_prob_pair dist_top[value_slots - m5_first_high_slot][1U << m5_top_bits];
};

} // namespace quarnex
