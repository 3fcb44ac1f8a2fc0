// method5/m5_learn.h - the encoder's first pass: updates models and lists the coder's steps
//
// An encoder knows all bits of a token at once, and so all its models.  The four bits of each group
// below have different models, so four models are updated together, in a vector.
//
// Each function updates the models of one part of a token, writes the part's steps and returns
// where those of the next part start.  Parts of variable length are also coded in groups of four,
// without a branch: this writes up to m5_spare_steps spare steps, which the next part overwrites,
// and uses models for them that no bit has.
#pragma once

#include "method5/m5_steps.h"

#include <cstring>

namespace quarnex {

/// Steps that may be written past the end of the last part.
inline constexpr u32 m5_spare_steps = slot_extra_bits(m5_first_high_slot - 1) - 1;

/// Four models, four steps or four masks.
using m5_four [[gnu::vector_size(16)]] = u32;

/// Masks for the lowest four bits of `bits`, from the top: all ones for a 1, else 0.
[[gnu::always_inline]] inline m5_four m5_masks(u32 bits)
{
    return reinterpret_cast<m5_four>(((m5_four{} + bits) & m5_four{8, 4, 2, 1}) != m5_four{});
}

/// m5_bit_step() of four models, for bits given as masks.
[[gnu::always_inline]] inline m5_four m5_four_steps(const m5_four& halves, const m5_four& ones)
{
    const m5_four means = (halves + (halves << 16)) >> 17;
    return (means ^ ones) - ones;
}

/// m5_prob_pair::update() of four models, for bits given as masks.
[[gnu::always_inline]] inline m5_four m5_four_moved(const m5_four& halves, const m5_four& ones)
{
    using pair = m5_prob_pair;
    return pair::moved(halves, (ones & (pair::to_zero ^ pair::to_full)) ^ pair::to_full);
}

/// One bit by its model.
[[gnu::always_inline]] inline m5_step* m5_learn_bit(m5_step* steps, m5_prob_pair& pair, u32 bit)
{
    *steps = m5_bit_step(pair.mean(), bit);
    pair.update(bit);
    return steps + 1;
}

/// The lowest four bits of `bits`, from the top, by the models model(0) to model(3).
template <class Models>
[[gnu::always_inline]] inline m5_step* m5_learn_four(m5_step* steps, Models model, u32 bits)
{
    m5_prob_pair& first = model(0);
    m5_prob_pair& second = model(1);
    m5_prob_pair& third = model(2);
    m5_prob_pair& fourth = model(3);
    const m5_four halves{first.halves, second.halves, third.halves, fourth.halves};
    const m5_four ones = m5_masks(bits);
    const m5_four listed = m5_four_steps(halves, ones);
    std::memcpy(steps, &listed, sizeof listed);
    const m5_four moved = m5_four_moved(halves, ones);
    first.halves = moved[0];
    second.halves = moved[1];
    third.halves = moved[2];
    fourth.halves = moved[3];
    return steps + 4;
}

/// The lowest two bits of `bits`, from the top.
[[gnu::always_inline]] inline m5_step* m5_learn_two(m5_step* steps, m5_prob_pair& first,
                                                    m5_prob_pair& second, u32 bits)
{
    const m5_four halves{first.halves, second.halves};
    const m5_four ones = m5_masks(bits << 2);
    const m5_four listed = m5_four_steps(halves, ones);
    std::memcpy(steps, &listed, 2 * sizeof *steps);
    const m5_four moved = m5_four_moved(halves, ones);
    first.halves = moved[0];
    second.halves = moved[1];
    return steps + 2;
}

/// The lowest four bits of `bits`, each in the context of the twelve bits above it.
[[gnu::always_inline]] inline m5_step* m5_learn_nibble(m5_step* steps, m5_nibble_models& models,
                                                       u32 bits)
{
    const auto model = [&](u32 i) -> m5_prob_pair& {
        const u32 place = m5_nibble_bits - 1 - i;
        return models[place][m5_literal_context(bits >> (place + 1))];
    };
    return m5_learn_four(steps, model, bits);
}

/// The literal at `place`, its flag included.
[[gnu::always_inline]] inline m5_step* m5_learn_literal(m5_step* steps, m5_model& model,
                                                        const u8* place)
{
    const u32 history = m5_history_at(place);
    const u32 bits = history << 8 | *place;
    steps = m5_learn_bit(steps, model.match_flag[m5_flag_context(history)], 0);
    steps = m5_learn_nibble(steps, model.lit_high, bits >> m5_nibble_bits);
    return m5_learn_nibble(steps, model.lit_low, bits);
}

/// A match at `place`, its flag included.  `offset` is its distance less one.
m5_step* m5_learn_match(m5_step* steps, m5_model& model, const u8* place, u32 length_value,
                        u32 offset);

} // namespace quarnex
