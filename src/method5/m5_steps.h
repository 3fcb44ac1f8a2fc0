// method5/m5_steps.h - the encoder's second pass: narrows the coder's interval, bit by bit
//
// The models of a bit depend on the bits before it, but not on the coder's interval.  So the
// encoder works in two passes over a batch of tokens.  The first (m5_learn.h) updates the models
// and lists the bits with their probabilities: the steps.  The second, here, narrows the interval
// step by step and writes bytes.  In a single loop, a mispredicted branch on a token would stall
// the coder, and both parts would compete for registers.
//
// A step of the second pass is one dependency chain, about six cycles long:
//
//     range / 2^15 -> times the mean -> plus the range, if the bit is 1 -> shifted, if below 2^24
//
// Shifts and carries are close to random, so neither is a branch.
#pragma once

#include "method5/m5_model.h"

#include <cassert>

namespace quarnex {

/// A step of the coder:
///
///     bit 0          mean of its model, 1 to 32767
///     bit 1          -mean
///     direct bits    count * 2^24 + value, with a count of 1 to max_direct_bits
using m5_step = i32;

inline constexpr u32 m5_direct_bits = 24;
static_assert(max_direct_bits <= m5_direct_bits && m5_prob_bits < m5_direct_bits);

constexpr m5_step m5_bit_step(u32 mean, u32 bit)
{
    assert(mean != 0 && mean >> m5_prob_bits == 0 && bit <= 1);
    const u32 one = 0 - bit; // all ones for a 1
    return static_cast<m5_step>((mean ^ one) - one);
}

constexpr m5_step m5_direct_step(u32 value, u32 count)
{
    assert(count >= 1 && count <= max_direct_bits && value >> count == 0);
    return static_cast<m5_step>(count << m5_direct_bits | value);
}

constexpr bool m5_is_direct(m5_step step)
{
    return step >= 1 << m5_direct_bits;
}

/// A batch ends with the token that reaches this number of steps: enough of them that a call per
/// batch costs little, few enough to stay in the first-level cache.
inline constexpr u32 m5_batch_steps = 1024;

/// Maximum number of steps of a token: a match.
inline constexpr u32 m5_token_max_steps =
    1 + 2 * m5_max_length_bits + m5_slot_bits + slot_extra_bits(m5_first_high_slot);

/// Maximum number of bytes that a step shifts out.
inline constexpr u32 m5_step_max_bytes = 3;

/// Codes the steps from `step` to `end` and returns the encoder after them.  `begin` is the start
/// of the stream, before which no whole words are loaded or stored.
range_encoder m5_encode_steps(range_encoder encoder, const u8* begin, const m5_step* step,
                              const m5_step* end);

/// The interval during a group of steps.
struct m5_interval {
    u32 range;
    u32 units;   // range / 2^m5_prob_bits
    u64 low;     // lower end; above bit 31 the carry and the bytes shifted out in this group
    u64 shifted; // number of these bytes
};

/// Shifts out a byte if the range is below min_range, and sets `units`.
[[gnu::always_inline]] inline void m5_shift_portably(m5_interval& interval)
{
    const u32 bytes = interval.range < min_range ? 1 : 0;
    interval.range <<= 8 * bytes;
    interval.units = interval.range >> m5_prob_bits;
    interval.low <<= 8 * bytes;
    interval.shifted += bytes;
}

#if defined(__x86_64__)

/// The same.  (Compilers would make it a branch, or compute the units only once the range is
/// selected, which takes a cycle more.)
[[gnu::always_inline]] inline void m5_shift(m5_interval& interval)
{
    const u32 range = interval.range;
    interval.units = range >> m5_prob_bits;
    asm("cmp %[min_range], %[range]\n\t"
        "cmovb %[next_units], %[units]\n\t"
        "cmovb %[next_range], %[range]\n\t"
        "cmovb %[next_low], %[low]\n\t"
        "adc $0, %[shifted]"
        : [range] "+&r"(interval.range), [units] "+&r"(interval.units), [low] "+&r"(interval.low),
          [shifted] "+&r"(interval.shifted)
        : [min_range] "i"(min_range), [next_range] "r"(range << 8),
          [next_units] "r"(range >> (m5_prob_bits - 8)), [next_low] "r"(interval.low << 8)
        : "cc");
}

#else

[[gnu::always_inline]] inline void m5_shift(m5_interval& interval)
{
    m5_shift_portably(interval);
}

#endif

} // namespace quarnex
