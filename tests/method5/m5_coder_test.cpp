#include "method5/m5_coder.h"

#include "method5/m5_streams.h"
#include "support/range_streams.h"

#include <array>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::coded;
using test::encode_bit;
using test::encode_tree;
using test::m5_plain_coder;
using test::m5_plain_pair;
using test::random_source;
using test::with_zeros;
using test::written;

void expect_same(const m5_prob_pair& pair, const m5_plain_pair& plain)
{
    EXPECT_EQ(pair.fast(), plain.fast);
    EXPECT_EQ(pair.slow(), plain.slow);
}

// Single bits

TEST(m5_encode_steps, first_bits)
{
    // A 1 at one half: low = 16384 * 0x1FFFF = 7FFFC000, range = FFFFFFFF - 7FFFC000 = 80003FFF.
    // A 0 at one half: range = 16384 * 0x10000 = 40000000.
    bytes buffer(test::stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    m5_prob_pair pair;
    encode_bit(encoder, pair, 1);
    EXPECT_EQ(encoder.low, 0x7FFFC000U);
    EXPECT_EQ(encoder.range, 0x80003FFFU);
    EXPECT_EQ(pair.fast(), 14336U); // 16384 - 2048
    EXPECT_EQ(pair.slow(), 16128U); // 16384 - 256
    m5_prob_pair other;
    encode_bit(encoder, other, 0);
    EXPECT_EQ(encoder.low, 0x7FFFC000U);
    EXPECT_EQ(encoder.range, 0x40000000U);
    EXPECT_EQ(other.fast(), 18432U);
    EXPECT_EQ(other.slow(), 16640U);
    flush(encoder);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x7F, 0xFF, 0xC0, 0x00}));
}

TEST(m5_encode_steps, the_smallest_bound_is_35_times_512)
{
    // A 0 of the minimum probability, 35, in the minimum range: 35 * 512 = 4600 (hexadecimal) is
    // left and takes two shifts.
    bytes buffer(test::stream_room);
    m5_prob_pair pair{7 | 63U << 16};
    range_encoder encoder{buffer.data() + 1, 0x12345678, 0x01000000};
    encode_bit(encoder, pair, 0);
    EXPECT_EQ(encoder.range, 0x46000000U);
    EXPECT_EQ(encoder.low, 0x56780000U);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x12, 0x34}));

    // A 1 of the same probability: bound = 32733 * 512 = FFBA00, and 4600 are left again.
    pair = {32761 | 32705U << 16};
    encoder = {buffer.data() + 1, 0x12000000, 0x01000000};
    encode_bit(encoder, pair, 1);
    EXPECT_EQ(encoder.range, 0x46000000U);
    EXPECT_EQ(encoder.low, 0xBA000000U);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x12, 0xFF}));
}

// Trees

using tree_of_3_bits = std::array<m5_prob_pair, 8>;

/// Expects the path of 101: pair 1 has seen a 1, pair 3 a 0, pair 6 a 1, and no other anything.
void expect_path_of_101(const tree_of_3_bits& tree)
{
    tree_of_3_bits expected;
    expected[1].update(1);
    expected[3].update(0);
    expected[6].update(1);
    for (usize i = 0; i < tree.size(); ++i) EXPECT_EQ(tree[i].halves, expected[i].halves) << i;
}

TEST(m5_tree, bits_come_from_the_top_and_pair_0_is_never_touched)
{
    tree_of_3_bits encoding;
    const bytes stream = coded([&](auto& encoder) { encode_tree(encoder, encoding.data(), 5, 3); });
    expect_path_of_101(encoding);
    tree_of_3_bits decoding;
    const bytes readable = with_zeros(stream);
    range_decoder decoder = start_range_decoder(readable.data());
    EXPECT_EQ(m5_decode_tree(decoder, decoding.data(), 3), 5U);
    expect_path_of_101(decoding);
}

TEST(m5_tree, values_of_all_widths_come_back)
{
    for (u32 width = 1; width <= 10; ++width) {
        random_source random(width);
        std::vector<u32> values;
        for (u32 value = 0; value < 1U << width; ++value) values.push_back(value);
        for (int i = 0; i < 3000; ++i)
            values.push_back(random.below(1U << random.below(width + 1)));
        std::vector<m5_prob_pair> encoding(1U << width);
        const bytes stream = coded([&](auto& encoder) {
            for (const u32 value : values) encode_tree(encoder, encoding.data(), value, width);
        });
        std::vector<m5_prob_pair> decoding(1U << width);
        const bytes readable = with_zeros(stream);
        range_decoder decoder = start_range_decoder(readable.data());
        for (const u32 value : values) {
            ASSERT_EQ(m5_decode_tree(decoder, decoding.data(), width), value) << width;
        }
        EXPECT_EQ(encoding[0].halves, m5_prob_pair().halves);
        for (usize i = 0; i < decoding.size(); ++i)
            EXPECT_EQ(decoding[i].halves, encoding[i].halves);
    }
}

// Chains

TEST(m5_decoder_chain, decodes_what_single_bits_decode)
{
    constexpr u32 pairs = 64;
    for (u64 seed = 1; seed <= 20; ++seed) {
        random_source random(seed);
        const bytes stream = test::find_shape("random").make(300000, seed);
        std::array<m5_prob_pair, pairs> by_chain;
        for (u32 i = 0; i < pairs; i += 3) by_chain[i] = {7 | 63U << 16};
        for (u32 i = 1; i < pairs; i += 3) by_chain[i] = {32761 | 32705U << 16};
        std::array<m5_prob_pair, pairs> by_bit = by_chain;
        range_decoder one{stream.data(), random.next() >> 1};
        range_decoder other = one;
        u32 at = 0;
        u32 bits = 0;
        m5_decoder_chain chain(by_chain[at]);
        for (int i = 0; i < 20000; ++i) {
            const u32 bit = m5_decode_bit(other, by_bit[at]);
            const u32 shifted = bits << 1 | bit;
            // Two neighbours, neither of them the current pair, which is updated too late.
            const u32 next = (at / 2 + 1 + random.below(pairs / 2 - 1)) % (pairs / 2) * 2;
            chain.step(one, &by_chain[at], &by_chain[next], bits);
            ASSERT_EQ(bits, shifted) << i;
            ASSERT_EQ(one.range, other.range) << i;
            ASSERT_EQ(one.code, other.code) << i;
            ASSERT_EQ(one.in, other.in) << i;
            ASSERT_EQ(by_chain[at].halves, by_bit[at].halves) << i;
            at = next + bit;
        }
    }
}

template <class Decide>
void expect_a_choice_at_the_bound(Decide decide)
{
    const m5_outcome if_1{11, 12, 13, 14, 15};
    for (const u32 bound : {1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        u32 bits = 0x80000001;
        m5_outcome outcome{bound, bound, 23, 24, 25};
        decide(outcome, if_1, bits);
        EXPECT_EQ(bits, 3U); // the top bit is pushed out
        EXPECT_EQ(outcome.range, 11U);
        EXPECT_EQ(outcome.code, 12U);
        EXPECT_EQ(outcome.halves, 13U);
        EXPECT_EQ(outcome.mean, 14U);
        EXPECT_EQ(outcome.target, 15U);

        outcome = {bound, bound - 1, 23, 24, 25};
        decide(outcome, if_1, bits);
        EXPECT_EQ(bits, 6U);
        EXPECT_EQ(outcome.range, bound);
        EXPECT_EQ(outcome.code, bound - 1);
        EXPECT_EQ(outcome.halves, 23U);
        EXPECT_EQ(outcome.mean, 24U);
        EXPECT_EQ(outcome.target, 25U);
    }
}

/// Equal values may share a register until one of them is written.
template <class Decide>
void expect_same_values_to_be_kept_apart(Decide decide)
{
    for (u32 same = 1; same < 4; ++same) {
        u32 bits = same;
        m5_outcome outcome{same, same, same, same, same};
        decide(outcome, m5_outcome{77, same, same, same, same}, bits);
        EXPECT_EQ(bits, 2 * same + 1);
        EXPECT_EQ(outcome.range, 77U);
        EXPECT_EQ(outcome.code, same);
        EXPECT_EQ(outcome.halves, same);
        EXPECT_EQ(outcome.mean, same);
        EXPECT_EQ(outcome.target, same);
    }
}

// Lambdas, as calls through pointers would not be inlined.
constexpr auto decide = [](auto&&... arguments) { m5_decide(arguments...); };
constexpr auto decide_portably = [](auto&&... arguments) { m5_decide_portably(arguments...); };

TEST(m5_decide, a_code_at_the_bound_is_a_1_and_one_below_it_a_0)
{
    expect_a_choice_at_the_bound(decide);
    expect_a_choice_at_the_bound(decide_portably);
}

TEST(m5_decide, keeps_equal_values_apart)
{
    expect_same_values_to_be_kept_apart(decide);
    expect_same_values_to_be_kept_apart(decide_portably);
}

// Mixtures

constexpr u32 mixture_pairs = 20;

/// A modelled bit, or a group of `count` direct bits.
struct step {
    u32 pair;
    u32 count;
    u32 value;
};

/// Bits of all kinds of skew, with groups between them.
std::vector<step> random_steps(u64 seed)
{
    random_source random(seed);
    std::vector<step> steps;
    for (int i = 0; i < 4000; ++i) {
        if (random.below(10) == 0) {
            const u32 count = 1 + random.below(22);
            steps.push_back({0, count, random.below(1U << count)});
        } else {
            const u32 pair = random.below(mixture_pairs); // of which the first is hardly ever 1
            steps.push_back({pair, 0, random.below(400) < pair * pair ? 1U : 0U});
        }
    }
    return steps;
}

TEST(m5_coder, writes_what_the_plain_coder_writes_and_reads_it_back)
{
    for (u64 seed = 1; seed <= 100; ++seed) {
        const std::vector<step> steps = random_steps(seed);
        std::array<m5_prob_pair, mixture_pairs> encoding;
        std::array<m5_plain_pair, mixture_pairs> plain_pairs;
        m5_plain_coder plain;
        const bytes stream = coded([&](auto& encoder) {
            for (const step& next : steps) {
                if (next.count != 0) {
                    encode_direct(encoder, next.value, next.count);
                    plain.direct(next.value, next.count);
                } else {
                    encode_bit(encoder, encoding[next.pair], next.value);
                    plain.bit(plain_pairs[next.pair], next.value != 0);
                }
            }
        });
        plain.flush();
        ASSERT_EQ(stream, plain.out) << seed;

        std::array<m5_prob_pair, mixture_pairs> decoding;
        const bytes readable = with_zeros(stream);
        range_decoder decoder = start_range_decoder(readable.data());
        for (const step& next : steps) {
            const u32 value = next.count != 0 ? decode_direct(decoder, next.count)
                                              : m5_decode_bit(decoder, decoding[next.pair]);
            ASSERT_EQ(value, next.value) << seed;
        }
        EXPECT_EQ(decoder.in, readable.data() + stream.size())
            << "the last byte is consumed, no more";
        for (u32 i = 0; i < mixture_pairs; ++i) {
            expect_same(encoding[i], plain_pairs[i]);
            expect_same(decoding[i], plain_pairs[i]);
        }
    }
}

} // namespace
} // namespace quarnex
