// method5/m5_model.h - what method 5 learns of a block
#pragma once

#include "coding/codec_state.h"
#include "method5/m5_format.h"

namespace quarnex {

/// The model of one binary decision: two estimates of the probability that the bit is 0, in units
/// of 1/32768.  One follows quickly, the other slowly; coding uses their mean.
///
/// Both live in one word, `fast` in its lower half: one load and one store move them, and they are
/// updated together.  No sum below carries from one half to the other.
struct m5_prob_pair {
    u32 halves = 0x40004000;

    constexpr u32 fast() const { return halves & 0xFFFF; }
    constexpr u32 slow() const { return halves >> 16; }

    /// The probability that coding uses.
    constexpr u32 mean() const { return (halves + (halves << 16)) >> 17; }

    constexpr void update(u32 bit) { halves = moved(halves, bit != 0 ? to_zero : to_full); }

    // A bit takes the estimate e to e - ((e - end) >> shift), rounded down; the end is 0 or
    // 32768 - (2^shift - 1), which leaves the same room on both sides.  moved() adds 32768 - end
    // instead, so that no difference is negative, and takes the 32768 back at the end, shifted.

    static constexpr u32 to_zero = 0x80008000; // for a 1
    static constexpr u32 to_full = 0x003F0007; // for a 0

    /// Both estimates moved towards one end, to_zero or to_full.
    static constexpr u32 moved(u32 halves, u32 towards)
    {
        constexpr u32 fast_shift = 3;
        constexpr u32 slow_shift = 6;
        constexpr u32 fast_mask = 0xFFFFU >> fast_shift;
        constexpr u32 slow_mask = 0xFFFFU >> slow_shift << 16;
        constexpr u32 taken_back = 0x8000U >> fast_shift | 0x8000U >> slow_shift << 16;
        const u32 rest = halves + towards;
        const u32 step = (rest >> fast_shift & fast_mask) + (rest >> slow_shift & slow_mask);
        return halves + taken_back - step;
    }
};
static_assert(sizeof(m5_prob_pair) == 4);

/// The models of half a literal, by the bit's place and by the twelve bits in front of it.
using m5_nibble_models = m5_prob_pair[m5_nibble_bits][m5_literal_contexts];

/// All models of a block.  A new one knows nothing: each bit has the probability one half.
struct m5_model {
    m5_nibble_models lit_high;
    m5_nibble_models lit_low;
    /// Literal or match by the previous byte.
    m5_prob_pair match_flag[m5_flag_contexts];
    /// Steps of a length's unary prefix, from 1 on.
    m5_prob_pair len_prefix[m5_max_length_bits + 1];
    /// Bits of a length by their number less one, and by place.
    m5_prob_pair len_bits[m5_max_length_bits][m5_max_length_bits];
    /// Trees of slots by the length class.
    m5_prob_pair dist_slot[m5_length_classes][value_slots];
    /// Trees of the extra bits of the middle slots; the tree of a slot starts at slot_base().
    m5_prob_pair dist_mid[slot_base(m5_first_high_slot)];
    /// Trees of the top extra bits of the high slots.
    m5_prob_pair dist_top[value_slots - m5_first_high_slot][1U << m5_top_bits];
};

inline constexpr auto m5_encoder_init = init_state<m5_model>;
inline constexpr auto m5_decoder_init = init_state<m5_model>;
inline constexpr auto m5_release = release_state<m5_model>;

} // namespace quarnex
