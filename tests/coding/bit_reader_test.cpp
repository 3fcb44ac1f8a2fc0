#include "coding/bit_reader.h"

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

TEST(bit_reader, the_first_bit_is_the_highest_of_the_first_byte)
{
    bytes in{0xB0, 0xF1, 0x80};
    in.resize(in.size() + bit_reader_overread);
    bit_reader reader(in.data());
    EXPECT_EQ(reader.consumed_end(), in.data());
    reader.refill();
    EXPECT_EQ(reader.consumed_end(), in.data());
    EXPECT_EQ(reader.peek(4), 0b1011U);
    EXPECT_EQ(reader.peek(4), 0b1011U);
    EXPECT_EQ(reader.take(3), 0b101U);
    EXPECT_EQ(reader.consumed_end(), in.data() + 1);
    reader.drop(5);
    EXPECT_EQ(reader.consumed_end(), in.data() + 1);
    EXPECT_EQ(reader.take(9), 0b1'1110'0011U);
    EXPECT_EQ(reader.consumed_end(), in.data() + 3);
}

TEST(bit_reader, a_refilled_window_holds_56_bits)
{
    for (u32 dropped = 0; dropped < 16; ++dropped) {
        bytes in(10, 0xFF);
        in.resize(in.size() + bit_reader_overread);
        bit_reader reader(in.data());
        reader.refill();
        reader.drop(dropped);
        reader.refill();
        EXPECT_EQ(reader.take(32), 0xFFFFFFFFU) << dropped;
        EXPECT_EQ(reader.take(24), 0xFFFFFFU) << dropped;
        EXPECT_EQ(reader.consumed_end(), in.data() + (dropped + 56 + 7) / 8) << dropped;
    }
}

/// Takes all bits of a random string in random portions, with windows filled by `fill`.
template <class Fill>
void expect_all_bits(Fill fill)
{
    for (u64 seed = 1; seed <= 50; ++seed) {
        const bytes data = test::find_shape("random").make(3000, seed);
        const auto in = test::exact_buffer(data.size() + bit_reader_overread);
        std::copy(data.begin(), data.end(), in.get());
        bit_reader reader(in.get());
        test::random_source random(seed);
        usize at = 0;
        for (;;) {
            const u32 count = 1 + random.below(32);
            if (at + count > 8 * data.size()) break;
            u64 expected = 0;
            for (u32 i = 0; i < count; ++i, ++at)
                expected = expected << 1 | (data[at / 8] >> (7 - at % 8) & 1);
            fill(reader, count);
            ASSERT_EQ(reader.take(count), expected) << at;
            ASSERT_EQ(reader.consumed_end(), in.get() + (at + 7) / 8) << at;
        }
    }
}

TEST(bit_reader, continues_at_another_place_with_the_same_bits)
{
    const bytes in = test::find_shape("random").make(48, 1);
    const bytes copy(in.begin() + 3, in.end());
    for (u32 at = 24; at <= 150; ++at) {
        bit_reader whole(in.data());
        for (u32 bit = 0; bit < at; ++bit) {
            whole.need(1);
            whole.drop(1);
        }
        bit_reader moved = whole;
        const auto place = moved.consumed_end() - in.data();
        EXPECT_GE(moved.next_load(), moved.consumed_end());
        moved.move_to(copy.data() + place - 3);
        EXPECT_EQ(moved.consumed_end(), copy.data() + place - 3);
        for (u32 taken = 0; taken < 100; taken += 20) {
            whole.refill();
            moved.refill();
            ASSERT_EQ(moved.take(20), whole.take(20)) << at;
        }
    }
}

TEST(bit_reader, ends_at_the_last_byte_of_which_bits_are_consumed_if_the_rest_is_zero)
{
    for (u32 count = 1; count <= 24; ++count) {
        for (u32 ones = 0; ones <= 24; ++ones) {
            // `ones` ones, then zeros.
            const u32 bits = ((1U << ones) - 1) << (24 - ones);
            bytes in{static_cast<u8>(bits >> 16), static_cast<u8>(bits >> 8),
                     static_cast<u8>(bits)};
            in.resize(in.size() + bit_reader_overread, 0xFF);
            bit_reader reader(in.data());
            EXPECT_TRUE(reader.ends_at(in.data()));
            reader.refill();
            EXPECT_TRUE(reader.ends_at(in.data()));
            reader.drop(count);
            const u32 last = (count + 7) / 8;
            for (u32 end = 0; end <= 4; ++end) {
                const bool zeros = ones <= count || count % 8 == 0;
                EXPECT_EQ(reader.ends_at(in.data() + end), end == last && zeros)
                    << count << ' ' << ones << ' ' << end;
            }
        }
    }
}

TEST(bit_reader, takes_1_to_32_bits_from_refilled_windows)
{
    expect_all_bits([](bit_reader& reader, u32) { reader.refill(); });
}

TEST(bit_reader, takes_1_to_32_bits_after_need)
{
    expect_all_bits([](bit_reader& reader, u32 count) { reader.need(count); });
}

} // namespace
} // namespace quarnex
