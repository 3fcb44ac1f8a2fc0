#include "method5/m5_learn.h"

#include <bit>

namespace quarnex {
namespace {

using signed_four [[gnu::vector_size(16)]] = i32;

/// Four bits of a length's prefix, from index `done` on, by neighbouring models.  The models of
/// bits past the prefix stay as they are.
[[gnu::always_inline]] inline void learn_prefix(m5_step* steps, m5_prob_pair* prefix, u32 done,
                                                u32 bits)
{
    m5_prob_pair* const models = prefix + 1 + done;
    m5_four halves;
    std::memcpy(&halves, models, sizeof halves);
    const signed_four left = static_cast<i32>(bits - done) - signed_four{0, 1, 2, 3};
    const auto ones = reinterpret_cast<m5_four>(left > 1);
    const auto used = reinterpret_cast<m5_four>(left > 0);
    const m5_four listed = m5_four_steps(halves, ones);
    std::memcpy(steps, &listed, sizeof listed);
    halves ^= (halves ^ m5_four_moved(halves, ones)) & used;
    std::memcpy(static_cast<void*>(models), &halves, sizeof halves);
}

m5_step* learn_length(m5_step* steps, m5_model& model, u32 length_value)
{
    const auto bits = static_cast<u32>(std::bit_width(length_value)) - 1; // below the leading one
    assert(bits >= 1 && bits < m5_max_length_bits);
    for (u32 done = 0; done < bits; done += 4) {
        learn_prefix(steps + done, model.len_prefix, done, bits);
    }
    steps += bits;
    m5_prob_pair* const models = model.len_bits[bits - 1];
    for (u32 done = 0; done < bits; done += 4) {
        // The places of spare bits wrap to the last ones, which a length of `bits` bits doesn't
        // have.
        const auto place_model = [=](u32 i) -> m5_prob_pair& {
            return models[(bits - 1 - done - i) % m5_max_length_bits];
        };
        const u64 rest = u64{length_value} << 4 >> (bits - done);
        m5_learn_four(steps + done, place_model, static_cast<u32>(rest));
    }
    return steps + bits;
}

/// Four bits of a number through a bit tree.  `path` is the number with a leading one; the four are
/// the next of its last `left` bits.
[[gnu::always_inline]] inline m5_step* learn_branches(m5_step* steps, m5_prob_pair* tree, u32 path,
                                                      u32 left)
{
    const auto model = [=](u32 i) -> m5_prob_pair& { return tree[path >> (left - i)]; };
    return m5_learn_four(steps, model, path >> (left - 4));
}

m5_step* learn_slot(m5_step* steps, m5_prob_pair* tree, u32 slot)
{
    static_assert(m5_slot_bits == 6);
    const u32 path = 1U << m5_slot_bits | slot;
    steps = learn_branches(steps, tree, path, 6);
    return m5_learn_two(steps, tree[path >> 2], tree[path >> 1], path);
}

/// The extra bits of a middle slot: 1 to 10.
m5_step* learn_middle(m5_step* steps, m5_prob_pair* tree, u32 extra, u32 width)
{
    static_assert(slot_extra_bits(m5_first_high_slot - 1) <= 10);
    // The model of bit i is selected by the path's first i + 1 bits.  For spare bits, shift counts
    // wrap to large ones, which leave index 0.
    const u64 upper = (1U << width | extra) >> 1;
    const auto model = [=](u32 i) -> m5_prob_pair& {
        return tree[upper >> ((width - 1 - i) & 63)];
    };
    const u32 bits = extra << (12 - width);
    m5_learn_four(steps, model, bits >> 8);
    m5_learn_four(
        steps + 4, [=](u32 i) -> m5_prob_pair& { return model(4 + i); }, bits >> 4);
    m5_learn_two(steps + 8, model(8), model(9), bits >> 2);
    return steps + width;
}

m5_step* learn_offset(m5_step* steps, m5_model& model, m5_prob_pair* slots, u32 offset)
{
    const u32 slot = value_slot(offset);
    steps = learn_slot(steps, slots, slot);
    if (slot < plain_slots) return steps;
    const u32 width = slot_extra_bits(slot);
    const u32 base = slot_base(slot);
    const u32 extra = offset - base;
    if (slot < m5_first_high_slot) return learn_middle(steps, model.dist_mid + base, extra, width);
    static_assert(m5_top_bits == 8);
    const u32 direct = width - m5_top_bits;
    const u32 path = 1U << m5_top_bits | extra >> direct;
    m5_prob_pair* const tree = model.dist_top[slot - m5_first_high_slot];
    steps = learn_branches(steps, tree, path, 8);
    steps = learn_branches(steps, tree, path, 4);
    *steps = m5_direct_step(extra & ((1U << direct) - 1), direct);
    return steps + 1;
}

} // namespace

m5_step* m5_learn_match(m5_step* steps, m5_model& model, const u8* place, u32 length_value,
                        u32 offset)
{
    steps = m5_learn_bit(steps, model.match_flag[m5_flag_context(m5_history_at(place))], 1);
    steps = learn_length(steps, model, length_value);
    return learn_offset(steps, model, model.dist_slot[m5_length_class(length_value)], offset);
}

} // namespace quarnex
