// coding/range_coder.h - a byte-wise range coder: renormalisation, carries, direct bits
//
// Range coding (Martin 1979), in 32 bits: both sides narrow an interval to the part of the next
// event, in proportion to its probability.  When the interval's width drops below 2^24, the encoder
// shifts out the top byte, and the decoder shifts in the next one.  Both sides must do the same
// arithmetic.  How the interval is divided is up to methods 4 and 5.
//
// Carries are propagated.  (Carryless coders such as Subbotin's instead give up part of the
// interval when the top byte stays undecided.)  The textbook form holds one byte back and counts
// pending 0xFF bytes; here the output is in memory, so bytes are written at once and a carry
// increments them in place.
#pragma once

#include "common/bytes.h"

#include <bit>
#include <cassert>

namespace quarnex {

/// Width of the initial interval.
inline constexpr u32 full_range = 0xFFFFFFFF;
/// Minimum width after renormalisation: below it the top byte is shifted out.
inline constexpr u32 min_range = 1U << 24;

/// Bytes that a decoder reads when it starts.
inline constexpr u32 range_start_bytes = 5;
/// Bytes that flush() writes.
inline constexpr u32 range_flush_bytes = 4;

/// Maximum number of bits per encode_direct(): more would shrink a range of min_range to 0.
inline constexpr u32 max_direct_bits = 24;

/// The state of an encoder.
///
/// Bytes are written as soon as they leave `low`.  A carry increments the bytes already written,
/// from the last one back to the nearest that is not 0xFF.
struct range_encoder {
    u8* out;     // next byte to write
    u64 low = 0; // lower end of the interval, with a carry in bit 32
    u32 range = full_range;
};

/// Starts a stream at `out` with a sentinel byte of 0.  No carry ever reaches it, because the
/// initial interval lies below 2^32.
inline range_encoder start_range_encoder(u8* out)
{
    *out = 0;
    return {out + 1};
}

/// Adds the carry in `low`, if any, to the bytes already written.
inline void propagate_carry(range_encoder& encoder)
{
    if (encoder.low >> 32 == 0) return;
    u8* carried = encoder.out;
    while (++*--carried == 0) {
    }
}

/// Writes the top byte of `low`, carry included.
inline void shift_low(range_encoder& encoder)
{
    propagate_carry(encoder);
    *encoder.out++ = static_cast<u8>(encoder.low >> 24);
    encoder.low = (encoder.low & (min_range - 1)) << 8;
}

/// Renormalises byte by byte, for coders that seldom shift out a byte.
inline void normalize(range_encoder& encoder)
{
    while (encoder.range < min_range) {
        encoder.range <<= 8;
        shift_low(encoder);
    }
}

/// Returns the number of bits by which renormalisation shifts: 0, 8, 16 or 24.  `range` is 1 or
/// more.
constexpr u32 settled_bits(u32 range)
{
    return static_cast<u32>(std::countl_zero(range)) & 24;
}

/// Renormalises like normalize(), without a branch on the number of bytes.  Writes 4 bytes.
inline void normalize_at_once(range_encoder& encoder)
{
    assert(encoder.range != 0);
    propagate_carry(encoder);
    const u32 bits = settled_bits(encoder.range);
    store_u32(encoder.out, byte_swap(static_cast<u32>(encoder.low)));
    encoder.out += bits / 8;
    encoder.low = static_cast<u32>(encoder.low) << bits;
    encoder.range <<= bits;
}

/// Encodes `value`, a number of `count` bits (1 to max_direct_bits), with equal probabilities.
inline void encode_direct(range_encoder& encoder, u32 value, u32 count)
{
    assert(count <= max_direct_bits && value >> count == 0);
    encoder.range >>= count;
    const u32 skipped = value * encoder.range;
    encoder.low += skipped;
    normalize_at_once(encoder);
}

/// Ends a stream by writing all of `low`.
inline void flush(range_encoder& encoder)
{
    for (u32 bytes = 0; bytes < range_flush_bytes; ++bytes) shift_low(encoder);
}

/// The state of a decoder.
struct range_decoder {
    const u8* in; // next byte to read
    u32 code;     // the stream's position in the interval: below `range` in an intact stream
    u32 range = full_range;
};

/// Starts decoding at `in`.  The first byte is skipped.
inline range_decoder start_range_decoder(const u8* in)
{
    return {in + range_start_bytes, byte_swap(load_u32(in + 1))};
}

/// Renormalises byte by byte, for coders that seldom need a byte.
inline void normalize(range_decoder& decoder)
{
    while (decoder.range < min_range) {
        decoder.range <<= 8;
        decoder.code = decoder.code << 8 | *decoder.in++;
    }
}

/// Renormalises like normalize(), without a branch on the number of bytes.  Reads 4 bytes.
inline void normalize_at_once(range_decoder& decoder)
{
    assert(decoder.range != 0);
    const u32 bits = settled_bits(decoder.range);
    const u64 code = u64{decoder.code} << 32 | byte_swap(load_u32(decoder.in));
    decoder.code = static_cast<u32>(code << bits >> 32);
    decoder.in += bits / 8;
    decoder.range <<= bits;
}

/// Decodes a number of `count` bits (1 to max_direct_bits).  In a damaged stream it can be larger.
inline u32 decode_direct(range_decoder& decoder, u32 count)
{
    assert(count <= max_direct_bits);
    decoder.range >>= count;
    const u32 value = decoder.code / decoder.range;
    decoder.code -= value * decoder.range;
    normalize_at_once(decoder);
    return value;
}

/// Returns true if the decoder has consumed exactly the stream from `begin` to `end` and the stream
/// ends as flush() ends it.
///
/// `code` is the number formed by the stream's bytes before `in`, minus the `low` that an encoder
/// has after the same tokens.  flush() writes exactly the bytes of `low`, so at the end of an
/// intact stream `in` equals `end` and the difference is 0.  The first byte has been shifted out of
/// `code`; it must still be 0, because no carry reaches it.
inline bool ends_at(const range_decoder& decoder, const u8* begin, const u8* end)
{
    return decoder.in == end && decoder.code == 0 && *begin == 0;
}

} // namespace quarnex
