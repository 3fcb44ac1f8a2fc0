// support/damaged_streams.h - checks decoders with payloads that no encoder writes
//
// All buffers end exactly with the payload and the block, so that a sanitizer detects accesses
// beyond them.
#pragma once

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// A payload with its block and parameters.
struct coded_block {
    bytes block;
    bytes stream;
    codec_parameters parameters;
};

/// Decodes a payload, which `after` follows, for the block.
inline bytes decode_for(const coded_block& coded, const bytes& payload, const bytes& after = {})
{
    const codec_entry& decoder = *decoder_table[coded.parameters.method];
    return decode_with(decoder, payload, coded.block.size(), coded.parameters, after);
}

/// Returns enough of one byte to follow any token.
inline bytes many(u8 byte)
{
    return bytes(1024, byte);
}

/// Expects that each prefix of the payload decodes to a prefix of the block, never shorter than
/// that of a shorter payload and regardless of the bytes that follow.
inline void expect_cuts_to_give_the_start_of_the_block(const coded_block& coded)
{
    usize before = 0;
    for (usize size = 0; size < coded.stream.size(); ++size) {
        const bytes cut(coded.stream.begin(), coded.stream.begin() + static_cast<i64>(size));
        const bytes out = decode_for(coded, cut);
        ASSERT_LT(out.size(), coded.block.size()) << size;
        ASSERT_GE(out.size(), before) << size;
        ASSERT_TRUE(std::equal(out.begin(), out.end(), coded.block.begin())) << size;
        for (const u8 next : {u8{0x5A}, u8{0xFF}})
            ASSERT_EQ(decode_for(coded, cut, many(next)), out) << size;
        before = out.size();
    }
    EXPECT_EQ(decode_for(coded, coded.stream, many(0xFF)), coded.block);
}

inline void expect_no_damage_from_a_longer_payload(coded_block coded)
{
    coded.stream.insert(coded.stream.end(), 100, 0xA5);
    EXPECT_EQ(decode_for(coded, coded.stream), coded.block);
}

/// Flips each bit of the payload and expects some bytes, regardless of those that follow it.
inline void expect_flipped_bits_to_give_some_bytes(const coded_block& coded)
{
    bytes damaged = coded.stream;
    for (usize bit = 0; bit < 8 * damaged.size(); ++bit) {
        damaged[bit / 8] ^= static_cast<u8>(1U << bit % 8);
        const bytes out = decode_for(coded, damaged);
        ASSERT_LE(out.size(), coded.block.size()) << bit;
        ASSERT_GE(out.size(), 1U) << bit;
        ASSERT_EQ(decode_for(coded, damaged, many(0xFF)), out) << bit;
        damaged[bit / 8] ^= static_cast<u8>(1U << bit % 8);
    }
}

/// Decodes random payloads and runs of one byte and expects some bytes, regardless of those that
/// follow.
inline void expect_nonsense_to_give_some_bytes(const codec_parameters& parameters)
{
    const auto expect_some_bytes = [&](const bytes& payload, usize length) {
        const coded_block coded{bytes(length), {}, parameters};
        const bytes out = decode_for(coded, payload);
        ASSERT_LE(out.size(), length);
        ASSERT_GE(out.size(), 1U);
        ASSERT_EQ(out[0], payload[0]);
        ASSERT_EQ(decode_for(coded, payload, many(0xFF)), out);
    };
    for (usize seed = 1; seed <= 300; ++seed) {
        const bytes payload = find_shape("random").make(1 + seed, seed);
        ASSERT_NO_FATAL_FAILURE(expect_some_bytes(payload, 1 + seed % 97 * 40)) << seed;
    }
    for (u32 value = 0; value < 256; ++value) {
        for (const usize size : {usize{7}, usize{400}}) {
            const bytes payload(size, static_cast<u8>(value));
            ASSERT_NO_FATAL_FAILURE(expect_some_bytes(payload, 5000)) << value;
        }
    }
}

} // namespace quarnex::test
