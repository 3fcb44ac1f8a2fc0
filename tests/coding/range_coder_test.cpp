#include "coding/range_coder.h"

#include "plain/plain_range_coder.h"
#include "support/range_streams.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::coded;
using test::plain_range_coder;
using test::random_source;
using test::stream_room;
using test::with_zeros;
using test::written;

// Starts and ends

TEST(range_encoder, an_empty_stream_is_five_zero_bytes)
{
    EXPECT_EQ(coded([](range_encoder&) {}), bytes(5, 0));
}

TEST(range_decoder, starts_with_the_four_bytes_after_the_first)
{
    const bytes stream{0x77, 0x12, 0x34, 0x56, 0x78, 0x9A};
    const range_decoder decoder = start_range_decoder(stream.data());
    EXPECT_EQ(decoder.code, 0x12345678U);
    EXPECT_EQ(decoder.range, 0xFFFFFFFFU);
    EXPECT_EQ(decoder.in, stream.data() + 5);
}

// Carries

TEST(shift_low, bytes_of_0xFF_without_a_carry_stay)
{
    bytes buffer(stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    encoder.low = 0x12FFFFFF;
    for (int i = 0; i < 3; ++i) shift_low(encoder);
    EXPECT_EQ(encoder.low, 0xFF000000U);
    shift_low(encoder);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x12, 0xFF, 0xFF, 0xFF}));
}

TEST(shift_low, a_carry_runs_through_bytes_of_0xFF_into_the_byte_before_them)
{
    bytes buffer(stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    encoder.low = 0x12FFFFFF;
    for (int i = 0; i < 3; ++i) shift_low(encoder);
    encoder.low +=
        0x01ABCDEF; // FF000000 becomes 1 00ABCDEF: 12 + 1, FF FF to 00 00, then the byte 00
    shift_low(encoder);
    EXPECT_EQ(encoder.low, 0xABCDEF00U);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x13, 0x00, 0x00, 0x00}));
}

TEST(shift_low, a_carry_stops_at_the_last_byte_that_is_not_0xFF)
{
    bytes buffer(stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    encoder.low = 0xFF12FE34;
    for (int i = 0; i < 3; ++i) shift_low(encoder);
    encoder.low += u64{1} << 32;
    shift_low(encoder);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0xFF, 0x12, 0xFF, 0x34}));
}

TEST(shift_low, clears_bit_32_whatever_the_byte_below_it_is)
{
    for (const u64 low : {u64{0x100000001}, u64{0x1FF000001}, u64{0x0FF000001}, u64{0x012000001}}) {
        bytes buffer(stream_room);
        range_encoder encoder = start_range_encoder(buffer.data());
        encoder.low = low;
        shift_low(encoder);
        EXPECT_EQ(encoder.low, 0x100U) << low;
        EXPECT_EQ(written(buffer, encoder),
                  (bytes{static_cast<u8>(low >> 32), static_cast<u8>(low >> 24)}));
    }
}

/// Codes a stream in which `count` bytes may still receive a carry, with one at the end or not.
template <class Direct>
void code_open_bytes(u32 count, bool carry, const plain_range_coder& so_far, Direct direct)
{
    direct(1, 7); // from 01FFFFFF to 03FFFFFE: 02000000 is inside
    direct(0, 7);
    for (u32 i = 0; i < count; ++i) {
        // Of the 256 parts, the one that contains the next carry.
        const u64 to_carry = (u64{1} << 32) - so_far.low;
        direct(static_cast<u32>(to_carry / (so_far.range >> 8)), 8);
    }
    if (carry) direct(0xFFFF, 16); // far above the carry
}

TEST(shift_low, pending_bytes_end_as_0xFF_or_0x00)
{
    for (u32 count = 2; count <= 300; ++count) {
        for (const bool carry : {false, true}) {
            plain_range_coder plain;
            bytes buffer(stream_room);
            range_encoder encoder = start_range_encoder(buffer.data());
            code_open_bytes(count, carry, plain, [&](u32 value, u32 bits) {
                plain.direct(value, bits);
                encode_direct(encoder, value, bits);
            });
            plain.flush();
            flush(encoder);
            ASSERT_EQ(written(buffer, encoder), plain.out) << count;
            EXPECT_EQ(buffer[1], carry ? 0x02 : 0x01) << count;
            EXPECT_EQ(bytes(buffer.begin() + 2, buffer.begin() + 2 + count),
                      bytes(count, carry ? 0x00 : 0xFF))
                << count;
        }
    }
}

// Settled bytes

/// Returns a range that renormalisation shifts by `settled` bytes: 0 to 3.
u32 range_with(u32 settled, random_source& random)
{
    const u32 lowest = 1U << (24 - 8 * settled);
    return lowest + random.below(settled == 0 ? ~lowest : 255 * lowest);
}

TEST(normalize_at_once, writes_0_to_3_bytes_like_normalize)
{
    random_source random(3);
    for (u32 settled = 0; settled <= 3; ++settled) {
        for (int round = 0; round < 2000; ++round) {
            const u32 range = range_with(settled, random);
            // With a carry every other time, into a byte 0xFF; often with bytes 0xFF below it.
            const u64 low =
                u64{random.below(2)} << 32 | random.next() | (random.below(2) << 31 >> 7);
            bytes one_by_one{0x12, 0xFF, 0, 0, 0, 0};
            range_encoder one{&one_by_one[2], low, range};
            normalize(one);
            // normalize() leaves a carry in `low` if it shifts no byte.
            propagate_carry(one);
            bytes at_once{0x12, 0xFF, 0, 0, 0, 0};
            range_encoder other{&at_once[2], low, range};
            normalize_at_once(other);
            ASSERT_EQ(other.out, &at_once[2 + settled]);
            ASSERT_EQ(one.out, &one_by_one[2 + settled]);
            ASSERT_TRUE(std::equal(at_once.data(), other.out, one_by_one.data())) << low;
            ASSERT_EQ(other.range, one.range);
            ASSERT_EQ(other.low, one.low & 0xFFFFFFFF) << low;
        }
    }
}

TEST(normalize_at_once, reads_0_to_3_bytes_like_normalize)
{
    random_source random(4);
    const bytes stream{0x11, 0x82, 0xF3, 0x44};
    for (u32 settled = 0; settled <= 3; ++settled) {
        for (int round = 0; round < 1000; ++round) {
            range_decoder one{stream.data(), random.next(), range_with(settled, random)};
            range_decoder other = one;
            normalize(one);
            normalize_at_once(other);
            ASSERT_EQ(other.in, stream.data() + settled);
            ASSERT_EQ(one.in, other.in);
            ASSERT_EQ(other.code, one.code);
            ASSERT_EQ(other.range, one.range);
            ASSERT_GE(other.range, min_range);
        }
    }
}

TEST(settled_bits, at_the_edges)
{
    EXPECT_EQ(settled_bits(0xFFFFFFFF), 0U);
    EXPECT_EQ(settled_bits(0x01000000), 0U);
    EXPECT_EQ(settled_bits(0x00FFFFFF), 8U);
    EXPECT_EQ(settled_bits(0x00010000), 8U);
    EXPECT_EQ(settled_bits(0x0000FFFF), 16U);
    EXPECT_EQ(settled_bits(0x00000100), 16U);
    EXPECT_EQ(settled_bits(0x000000FF), 24U);
    EXPECT_EQ(settled_bits(1), 24U);
}

// Ends

TEST(ends_at, is_true_where_the_encoder_flushed_only)
{
    random_source random(5);
    for (u32 count = 0; count <= 200; ++count) {
        std::vector<u32> values;
        for (u32 i = 0; i < count; ++i) values.push_back(random.below(1U << 10));
        const bytes stream = coded([&](auto& encoder) {
            for (const u32 value : values) encode_direct(encoder, value, 10);
        });
        const auto ends = [&](const bytes& changed, usize size) {
            const bytes readable = with_zeros(changed);
            range_decoder decoder = start_range_decoder(readable.data());
            for (u32 i = 0; i < count; ++i) decode_direct(decoder, 10);
            return ends_at(decoder, readable.data(), readable.data() + size);
        };
        EXPECT_TRUE(ends(stream, stream.size())) << count;
        EXPECT_FALSE(ends(stream, stream.size() - 1)) << count;
        EXPECT_FALSE(ends(stream, stream.size() + 1)) << count;
        for (usize i = 0; i < stream.size(); ++i) {
            bytes changed = stream;
            changed[i] ^= 1;
            EXPECT_FALSE(ends(changed, stream.size())) << count << ' ' << i;
        }
    }
}

// Groups of direct bits

TEST(direct_bits, a_group_of_22_bits_worked_by_hand)
{
    // range = FFFFFFFF >> 22 = 3FF; low = 2AAAAA * 3FF = AA7FFD56; two bytes are shifted out.
    const bytes stream = coded([](auto& encoder) { encode_direct(encoder, 0x2AAAAA, 22); });
    EXPECT_EQ(stream, (bytes{0x00, 0xAA, 0x7F, 0xFD, 0x56, 0x00, 0x00}));
    const bytes readable = with_zeros(stream);
    range_decoder decoder = start_range_decoder(readable.data());
    EXPECT_EQ(decoder.code, 0xAA7FFD56U);
    EXPECT_EQ(decode_direct(decoder, 22), 0x2AAAAAU);
    EXPECT_EQ(decoder.range, 0x3FF0000U);
    EXPECT_EQ(decoder.code, 0U);
    EXPECT_EQ(decoder.in, readable.data() + stream.size());
}

TEST(direct_bits, a_single_bit)
{
    EXPECT_EQ(coded([](auto& encoder) { encode_direct(encoder, 1, 1); }),
              (bytes{0x00, 0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(coded([](auto& encoder) { encode_direct(encoder, 0, 1); }), bytes(5, 0));
}

TEST(direct_bits, groups_of_1_to_24_bits_come_back)
{
    for (u32 count = 1; count <= 24; ++count) {
        random_source random(count);
        std::vector<u32> values{0, (1U << count) - 1, 1, (1U << count) - 2};
        for (int i = 0; i < 2000; ++i) values.push_back(random.below(1U << count));
        const bytes stream = coded([&](auto& encoder) {
            for (const u32 value : values) encode_direct(encoder, value, count);
        });
        const bytes readable = with_zeros(stream);
        range_decoder decoder = start_range_decoder(readable.data());
        for (const u32 value : values) ASSERT_EQ(decode_direct(decoder, count), value) << count;
        EXPECT_EQ(decoder.in, readable.data() + stream.size());
    }
}

TEST(direct_bits, in_a_damaged_stream_a_value_can_exceed_its_bits)
{
    // range = 1FFFFFF >> 22 = 7; 1FFFFFE is 7 * 492492 (hexadecimal), and three bytes follow.
    const bytes next{0x11, 0x22, 0x33, 0x44};
    range_decoder decoder{next.data(), 0x1FFFFFE, 0x1FFFFFF};
    EXPECT_EQ(decode_direct(decoder, 22), 0x492492U);
    EXPECT_EQ(decoder.range, 0x7000000U);
    EXPECT_EQ(decoder.code, 0x112233U);
}

TEST(direct_bits, 22_bits_in_the_minimum_range)
{
    // 1000000 >> 22 = 4, and 4 << 24 is the next range.
    const bytes next{0x11, 0x22, 0x33, 0x44};
    range_decoder decoder{next.data(), 0xFFFFFF, min_range};
    EXPECT_EQ(decode_direct(decoder, 22), 0x3FFFFFU);
    EXPECT_EQ(decoder.range, 0x4000000U);
    EXPECT_EQ(decoder.code, 0x3112233U);
}

} // namespace
} // namespace quarnex
