#include "method5/m5_model.h"

#include "plain/m5_plain.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::m5_plain_pair;

// The estimates that a pair can have.
constexpr u32 min_fast = 7;
constexpr u32 max_fast = 32761;
constexpr u32 min_slow = 63;
constexpr u32 max_slow = 32705;

m5_prob_pair pair_of(u32 fast, u32 slow)
{
    return {fast | slow << 16};
}

/// Compares a pair and its updates with the plain form.
void check(u32 fast, u32 slow)
{
    const m5_prob_pair pair = pair_of(fast, slow);
    const m5_plain_pair plain{fast, slow};
    ASSERT_EQ(pair.mean(), plain.mean()) << fast << ' ' << slow;
    for (const u32 bit : {0U, 1U}) {
        m5_prob_pair moved = pair;
        m5_plain_pair learnt = plain;
        moved.update(bit);
        learnt.learn(bit != 0);
        ASSERT_EQ(moved.fast(), learnt.fast) << fast << ' ' << slow << " bit " << bit;
        ASSERT_EQ(moved.slow(), learnt.slow) << fast << ' ' << slow << " bit " << bit;
    }
}

TEST(m5_prob_pair, starts_at_one_half)
{
    EXPECT_EQ(m5_prob_pair().fast(), 0x4000U);
    EXPECT_EQ(m5_prob_pair().slow(), 0x4000U);
    EXPECT_EQ(m5_prob_pair().mean(), 0x4000U);
}

TEST(m5_prob_pair, first_steps)
{
    // A 0: 16384 + 16384 / 8 = 18432 and 16384 + 16384 / 64 = 16640, the mean 17536.
    m5_prob_pair pair;
    pair.update(0);
    EXPECT_EQ(pair.fast(), 18432U);
    EXPECT_EQ(pair.slow(), 16640U);
    EXPECT_EQ(pair.mean(), 17536U);
    // Then a 1: 18432 - 2304 = 16128 and 16640 - 260 = 16380, the mean 16254.
    pair.update(1);
    EXPECT_EQ(pair.fast(), 16128U);
    EXPECT_EQ(pair.slow(), 16380U);
    EXPECT_EQ(pair.mean(), 16254U);
}

TEST(m5_prob_pair, every_fast_estimate_moves_by_its_rule_beside_any_slow_one)
{
    for (u32 fast = min_fast; fast <= max_fast; ++fast) {
        for (const u32 slow : {min_slow, 64U, 127U, 0x3FFFU, 0x4000U, 32704U, max_slow})
            ASSERT_NO_FATAL_FAILURE(check(fast, slow));
    }
}

TEST(m5_prob_pair, every_slow_estimate_moves_by_its_rule_beside_any_fast_one)
{
    for (u32 slow = min_slow; slow <= max_slow; ++slow) {
        for (const u32 fast : {min_fast, 8U, 15U, 0x3FFFU, 0x4000U, 32760U, max_fast})
            ASSERT_NO_FATAL_FAILURE(check(fast, slow));
    }
}

TEST(m5_prob_pair, the_halves_do_not_affect_each_other)
{
    test::random_source random(1);
    for (int i = 0; i < 1000000; ++i) {
        ASSERT_NO_FATAL_FAILURE(check(min_fast + random.below(max_fast - min_fast + 1),
                                      min_slow + random.below(max_slow - min_slow + 1)));
    }
}

TEST(m5_prob_pair, stops_at_its_limits_after_many_equal_bits)
{
    m5_prob_pair ones;
    m5_prob_pair zeros;
    for (int i = 0; i < 10000; ++i) {
        ones.update(1);
        zeros.update(0);
    }
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ones.fast(), min_fast);
        EXPECT_EQ(ones.slow(), min_slow);
        EXPECT_EQ(ones.mean(), 35U);
        EXPECT_EQ(zeros.fast(), max_fast);
        EXPECT_EQ(zeros.slow(), max_slow);
        EXPECT_EQ(zeros.mean(), 32733U);
        ones.update(1);
        zeros.update(0);
    }
}

TEST(m5_prob_pair, leaves_its_limits_at_the_first_other_bit)
{
    // 7 + 32761 / 8 = 4102, 63 + 32705 / 64 = 574; 32761 - 4095 = 28666, 32705 - 511 = 32194.
    m5_prob_pair pair = pair_of(min_fast, min_slow);
    pair.update(0);
    EXPECT_EQ(pair.halves, pair_of(4102, 574).halves);
    pair = pair_of(max_fast, max_slow);
    pair.update(1);
    EXPECT_EQ(pair.halves, pair_of(28666, 32194).halves);
}

TEST(m5_model, starts_with_all_probabilities_at_one_half)
{
    scratch memory(system_allocator);
    const codec_job job{.memory = &memory};
    for (int round = 0; round < 2; ++round) {
        void* const model = init_state<m5_model>(job);
        ASSERT_NE(model, nullptr);
        m5_prob_pair* const pairs = static_cast<m5_prob_pair*>(model);
        for (usize i = 0; i < sizeof(m5_model) / sizeof(m5_prob_pair); ++i) {
            ASSERT_EQ(pairs[i].halves, 0x40004000U) << i;
            pairs[i].update(0); // what one block learns is not for the next
        }
        release_state<m5_model>(job, model);
    }
}

} // namespace
} // namespace quarnex
