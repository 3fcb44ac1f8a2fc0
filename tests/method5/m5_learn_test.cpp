#include "method5/m5_learn.h"

#include "method5/m5_streams.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace quarnex {
namespace {

using test::random_source;

/// Updates models one by one and lists their steps.
struct plain_learner {
    m5_model& model;
    std::vector<m5_step> steps;

    void bit(m5_prob_pair& pair, u32 bit)
    {
        steps.push_back(m5_bit_step(pair.mean(), bit));
        pair.update(bit);
    }

    void tree(m5_prob_pair* pairs, u32 value, u32 width)
    {
        u32 index = 1;
        for (u32 place = width; place-- != 0;) {
            bit(pairs[index], value >> place & 1);
            index = 2 * index + (value >> place & 1);
        }
    }

    void literal(const u8* place)
    {
        bit(model.match_flag[place[-1]], 0);
        const u32 bits = u32{place[-2]} << 16 | u32{place[-1]} << 8 | place[0];
        for (u32 i = 8; i-- != 0;) {
            auto& models = i >= 4 ? model.lit_high : model.lit_low;
            bit(models[i % 4][bits >> (i + 1) & 0xFFF], bits >> i & 1);
        }
    }

    void match(const u8* place, u32 length_value, u32 offset)
    {
        bit(model.match_flag[place[-1]], 1);
        const auto below = static_cast<u32>(std::bit_width(length_value)) - 1;
        for (u32 i = 1; i <= below; ++i) bit(model.len_prefix[i], i < below);
        for (u32 i = below; i-- != 0;) bit(model.len_bits[below - 1][i], length_value >> i & 1);
        const u32 slot = value_slot(offset);
        tree(model.dist_slot[std::min(length_value - 2, 3U)], slot, 6);
        if (slot < 4) return;
        const u32 width = slot_extra_bits(slot), extra = offset - slot_base(slot);
        if (slot < 23) return tree(model.dist_mid + slot_base(slot), extra, width);
        tree(model.dist_top[slot - 23], extra >> (width - 8), 8);
        steps.push_back(m5_direct_step(extra & ((1U << (width - 8)) - 1), width - 8));
    }
};

/// Resets the models that no bit has, and that spare steps use.
void reset_spare_models(m5_model& model)
{
    for (u32 bits = 1; bits <= m5_max_length_bits; ++bits) {
        for (u32 place = bits; place < m5_max_length_bits; ++place) {
            model.len_bits[bits - 1][place] = {};
        }
    }
    for (u32 slot = plain_slots; slot < m5_first_high_slot; ++slot) {
        model.dist_mid[slot_base(slot)] = {};
    }
}

bool same(const m5_model& a, const m5_model& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// Makes a model that has seen something of everything.
void stir(m5_model& model, u64 seed)
{
    random_source random(seed);
    plain_learner learner{model, {}};
    for (int i = 0; i < 3000; ++i) {
        const std::array<u8, 3> bytes{static_cast<u8>(random.below(4)),
                                      static_cast<u8>(random.below(256)),
                                      static_cast<u8>(random.below(256))};
        learner.literal(&bytes[2]);
        learner.match(&bytes[2], 2 + random.below(1U << random.below(20)),
                      static_cast<u32>(random.next() >> random.below(32)));
    }
}

class m5_learn : public testing::Test {
  protected:
    m5_learn()
    {
        stir(*model, 1);
        *plain_model = *model;
    }

    /// Expects the steps up to `end` that the plain learner lists, and its models.
    void expect_same(const m5_step* end)
    {
        ASSERT_EQ(static_cast<usize>(end - steps.data()), plain.steps.size());
        EXPECT_TRUE(std::equal(plain.steps.begin(), plain.steps.end(), steps.begin()));
        plain.steps.clear();
        reset_spare_models(*model);
        ASSERT_TRUE(same(*model, *plain_model));
    }

    std::unique_ptr<m5_model> model = std::make_unique<m5_model>();
    std::unique_ptr<m5_model> plain_model = std::make_unique<m5_model>();
    plain_learner plain{*plain_model, {}};
    // Room for one token: sanitizers find steps written past it.
    std::vector<m5_step> steps = std::vector<m5_step>(m5_token_max_steps + m5_spare_steps);
};

TEST_F(m5_learn, all_literals_after_all_bytes)
{
    for (u32 pair = 0; pair < 1U << 16; ++pair) {
        const std::array<u8, 3> bytes{static_cast<u8>(pair * 7 + (pair >> 8)),
                                      static_cast<u8>(pair >> 8), static_cast<u8>(pair)};
        plain.literal(&bytes[2]);
        const m5_step* const end = m5_learn_literal(steps.data(), *model, &bytes[2]);
        if (pair % 97 != 0) {
            plain.steps.clear();
            continue;
        }
        ASSERT_NO_FATAL_FAILURE(expect_same(end));
    }
    ASSERT_TRUE(same(*model, *plain_model));
}

TEST_F(m5_learn, lengths_of_all_widths)
{
    const std::array<u8, 3> bytes{1, 2, 3};
    for (u32 bits = 1; bits < m5_max_length_bits; ++bits) {
        const u32 low = 1U << bits;
        for (const u32 value :
             {low, low + 1, low + (low >> 1), 2 * low - 1, low | (0x55555555 % low)}) {
            plain.match(&bytes[2], value, 1);
            const m5_step* const end = m5_learn_match(steps.data(), *model, &bytes[2], value, 1);
            ASSERT_NO_FATAL_FAILURE(expect_same(end)) << value;
        }
    }
}

TEST_F(m5_learn, distances_of_all_slots)
{
    const std::array<u8, 3> bytes{1, 2, 3};
    for (u32 slot = 0; slot < value_slots; ++slot) {
        const u32 base = slot < plain_slots ? slot : slot_base(slot);
        const u32 size = slot < plain_slots ? 1 : 1U << slot_extra_bits(slot);
        for (const u32 extra : {0U, size - 1, size / 2, 0x2AAAAAAA % size, 0x15555555 % size}) {
            for (u32 value = 2; value <= 6; ++value) {
                plain.match(&bytes[2], value, base + extra);
                const m5_step* const end =
                    m5_learn_match(steps.data(), *model, &bytes[2], value, base + extra);
                ASSERT_NO_FATAL_FAILURE(expect_same(end)) << slot << ' ' << extra;
            }
        }
    }
}

} // namespace
} // namespace quarnex
