#include "method5/m5_steps.h"

#include "method5/m5_streams.h"
#include "support/range_streams.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

using test::bytes;
using test::m5_plain_coder;
using test::m5_plain_pair;
using test::random_source;

/// The stream of `steps`, coded in one call after the first `single` ones in a call each.
bytes stream_of(const std::vector<m5_step>& steps, usize single)
{
    return test::coded([&](range_encoder& encoder) {
        const u8* const begin = encoder.out - 1;
        const m5_step* step = steps.data();
        const m5_step* const end = step + steps.size();
        for (const m5_step* const first = step + single; step != first; ++step) {
            encoder = m5_encode_steps(encoder, begin, step, step + 1);
        }
        encoder = m5_encode_steps(encoder, begin, step, end);
    });
}

bytes plain_stream_of(const std::vector<m5_step>& steps)
{
    m5_plain_coder plain;
    for (const m5_step step : steps) {
        if (step >= 1 << 24) {
            plain.direct(static_cast<u32>(step) & 0xFFFFFF, static_cast<u32>(step) >> 24);
        } else {
            const u32 mean = static_cast<u32>(step < 0 ? -step : step);
            m5_plain_pair pair{mean, mean};
            plain.bit(pair, step < 0);
        }
    }
    plain.flush();
    return plain.out;
}

TEST(m5_bit_step, is_the_mean_and_negative_for_a_1)
{
    EXPECT_EQ(m5_bit_step(35, 0), 35);
    EXPECT_EQ(m5_bit_step(35, 1), -35);
    EXPECT_EQ(m5_bit_step(32733, 0), 32733);
    EXPECT_EQ(m5_bit_step(32733, 1), -32733);
    EXPECT_FALSE(m5_is_direct(32767));
    EXPECT_FALSE(m5_is_direct(-32767));
}

TEST(m5_direct_step, holds_the_count_and_the_value)
{
    EXPECT_EQ(m5_direct_step(0, 1), 0x01000000);
    EXPECT_EQ(m5_direct_step(0x3FFFFF, 22), 0x163FFFFF);
    EXPECT_TRUE(m5_is_direct(m5_direct_step(0, 1)));
}

/// Random bits with probabilities of all sizes; about `direct` of 100 steps are groups of direct
/// bits.
std::vector<m5_step> random_steps(u64 seed, usize count, u64 direct)
{
    random_source random(seed);
    std::vector<m5_step> steps;
    while (steps.size() < count) {
        const u32 kind = random.below(100);
        if (kind < direct) {
            const u32 width = 1 + random.below(22);
            steps.push_back(m5_direct_step(random.below(1U << width), width));
        } else if (kind < 60) { // likely bits, by a mean close to an end
            const u32 rare = 35 + random.below(400);
            const bool one = random.below(2) != 0;
            steps.push_back(m5_bit_step(one ? rare : 32768 - rare, one));
        } else {
            steps.push_back(m5_bit_step(35 + random.below(32733 - 35 + 1), random.below(2)));
        }
    }
    return steps;
}

TEST(m5_encode_steps, writes_what_the_plain_coder_writes)
{
    for (u64 seed = 1; seed <= 60; ++seed) {
        const std::vector<m5_step> steps = random_steps(seed, 5000, seed % 3 * 5);
        const bytes expected = plain_stream_of(steps);
        // Calls with a single step code it alone; the last call codes steps in groups.
        for (const usize single : {usize{0}, usize{1}, usize{2}, usize{1000}, steps.size()}) {
            ASSERT_TRUE(stream_of(steps, single) == expected) << seed << ' ' << single;
        }
    }
}

TEST(m5_encode_steps, any_number_of_steps_can_be_coded_in_a_call)
{
    for (usize count = 0; count <= 40; ++count) {
        for (const u64 direct : {0U, 30U, 60U}) {
            const std::vector<m5_step> steps = random_steps(count + 1, count, direct);
            ASSERT_EQ(stream_of(steps, 0), plain_stream_of(steps)) << count;
        }
    }
}

TEST(m5_encode_steps, batches_of_all_lengths_continue_each_other)
{
    const std::vector<m5_step> steps = random_steps(5, 20000, 3);
    random_source random(7);
    const bytes stream = test::coded([&](range_encoder& encoder) {
        const u8* const begin = encoder.out - 1;
        for (usize done = 0; done < steps.size();) {
            const usize next = std::min<usize>(steps.size(), done + random.below(20));
            encoder = m5_encode_steps(encoder, begin, &steps[done], steps.data() + next);
            done = next;
        }
    });
    EXPECT_TRUE(stream == plain_stream_of(steps));
}

TEST(m5_encode_steps, the_least_likely_bits_shift_two_bytes_each)
{
    for (const u32 bit : {0U, 1U}) {
        const std::vector<m5_step> steps(500, m5_bit_step(bit != 0 ? 32733 : 35, bit));
        EXPECT_TRUE(stream_of(steps, 0) == plain_stream_of(steps)) << bit;
    }
}

/// Steps that leave the top bytes undecided: `pending` bytes of 0xFF that a carry can still reach.
std::vector<m5_step> undecided_steps(i64 pending)
{
    bytes buffer(test::stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    std::vector<m5_step> steps;
    const auto add = [&](u32 mean, u32 bit) {
        steps.push_back(m5_bit_step(mean, bit));
        test::encode_step(encoder, steps.back());
    };
    // Takes the part with `border` in it.
    const auto add_around = [&](u64 border) {
        const u64 bound = u64{11111} * (encoder.range >> 15);
        add(11111, encoder.low + bound <= border ? 1 : 0);
    };
    add(16384, 1); // from 7FFFC000
    const u8* const start = encoder.out + 1;
    while (encoder.out < start) add_around(0x80000000);
    while (encoder.out < start + pending) add_around(u64{1} << 32);
    EXPECT_TRUE(std::all_of(start, static_cast<const u8*>(encoder.out),
                            [](u8 byte) { return byte == 0xFF; }));
    EXPECT_LT(encoder.low, u64{1} << 32);
    EXPECT_GT(encoder.low + encoder.range, u64{1} << 32);
    return steps;
}

TEST(m5_encode_steps, a_carry_passes_any_number_of_pending_bytes)
{
    for (const i64 pending : {0, 1, 2, 6, 7, 8, 9, 15, 16, 17, 40}) {
        std::vector<m5_step> steps = undecided_steps(pending);
        const usize decided = steps.size();
        // The lowest part of the interval causes no carry, the highest part causes one.
        for (const u32 bit : {0U, 1U}) {
            steps.resize(decided);
            steps.insert(steps.end(), 12, m5_bit_step(bit != 0 ? 32733 : 35, bit));
            const bytes stream = stream_of(steps, 0);
            ASSERT_EQ(stream, plain_stream_of(steps)) << pending << ' ' << bit;
            EXPECT_EQ(stream[1], bit != 0 ? 0x80 : 0x7F);
            EXPECT_EQ(stream_of(steps, decided), stream);
        }
    }
}

template <class Shift>
void expect_shifts(Shift shift)
{
    for (const u32 range : {0x01000000U, 0x01000001U, 0x12345678U, 0xFFFFFFFFU}) {
        m5_interval interval{range, 0, 0x1'2345'6789, 3};
        shift(interval);
        EXPECT_EQ(interval.range, range);
        EXPECT_EQ(interval.units, range >> 15);
        EXPECT_EQ(interval.low, 0x1'2345'6789U);
        EXPECT_EQ(interval.shifted, 3U);
    }
    for (const u32 range : {0x00FFFFFFU, 0x00123456U, 0x00004600U, 0x00010000U}) {
        m5_interval interval{range, 0, 0x1'2345'6789, 1};
        shift(interval);
        EXPECT_EQ(interval.range, range << 8);
        EXPECT_EQ(interval.units, range << 8 >> 15);
        EXPECT_EQ(interval.low, 0x123'4567'8900U);
        EXPECT_EQ(interval.shifted, 2U);
    }
}

TEST(m5_shift, shifts_out_a_byte_below_2_to_the_24)
{
    // Lambdas, since calls through pointers would not be inlined.
    expect_shifts([](m5_interval& interval) { m5_shift(interval); });
    expect_shifts([](m5_interval& interval) { m5_shift_portably(interval); });
}

} // namespace
} // namespace quarnex
