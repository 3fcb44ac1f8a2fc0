#include "coding/bit_writer.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

TEST(bit_writer, the_first_bit_is_the_highest_of_the_first_byte)
{
    bytes out(2 + bit_writer_overrun);
    bit_writer writer(out.data());
    EXPECT_EQ(writer.end(), out.data());
    writer.put(0b101, 3);
    EXPECT_EQ(writer.whole_bytes_end(), out.data());
    EXPECT_EQ(writer.end(), out.data() + 1);
    writer.put(0, 0);
    writer.put(0b1'0000'1111, 9);
    EXPECT_EQ(writer.whole_bytes_end(), out.data() + 1);
    EXPECT_EQ(writer.end(), out.data() + 2);
    // 1011 0000 1111, padded with zeros
    EXPECT_EQ(bytes(out.data(), writer.end()), (bytes{0xB0, 0xF0}));
}

TEST(bit_writer, a_complete_byte_is_not_followed_by_padding)
{
    bytes out(1 + bit_writer_overrun);
    bit_writer writer(out.data());
    writer.put(0xA5, 8);
    EXPECT_EQ(writer.whole_bytes_end(), out.data() + 1);
    EXPECT_EQ(writer.end(), out.data() + 1);
    EXPECT_EQ(out[0], 0xA5);
}

TEST(bit_writer, puts_of_0_to_56_bits_join)
{
    for (u64 seed = 1; seed <= 50; ++seed) {
        test::random_source random(seed);
        std::vector<bool> bits;
        bytes out(1000 * 7 + bit_writer_overrun, 0xEE);
        bit_writer writer(out.data());
        for (int i = 0; i < 1000; ++i) {
            const u32 count = random.below(bit_writer::max_bits + 1);
            const u64 any = u64{random.next()} << 32 | random.next();
            const u64 value = any & ((u64{1} << count) - 1);
            for (u32 bit = count; bit-- > 0;) bits.push_back((value >> bit & 1) != 0);
            writer.put(value, count);
            ASSERT_EQ(writer.whole_bytes_end(), out.data() + bits.size() / 8);
            ASSERT_EQ(writer.end(), out.data() + (bits.size() + 7) / 8);
        }
        bytes expected((bits.size() + 7) / 8);
        for (usize i = 0; i < bits.size(); ++i)
            expected[i / 8] = static_cast<u8>(expected[i / 8] | (bits[i] ? 0x80 >> i % 8 : 0));
        ASSERT_EQ(bytes(out.data(), writer.end()), expected) << seed;
    }
}

TEST(bit_writer, writes_at_most_its_overrun_past_the_bits)
{
    for (u32 first = 0; first <= bit_writer::max_bits; ++first) {
        for (u32 second = 0; second <= bit_writer::max_bits; ++second) {
            bytes out(2 * bit_writer::max_bits / 8 + bit_writer_overrun + 2, 0xEE);
            bit_writer writer(out.data());
            writer.put(0, first);
            const u8* const before = writer.whole_bytes_end();
            writer.put(0, second);
            const auto written = static_cast<usize>(before - out.data()) + bit_writer_overrun;
            for (usize i = written; i < out.size(); ++i) ASSERT_EQ(out[i], 0xEE) << first;
        }
    }
}

} // namespace
} // namespace quarnex
