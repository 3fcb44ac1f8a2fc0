// coding/range_coder.h - the interval of a byte-wise range coder, on both sides
//
// Both sides cut the current interval in parts by the probabilities of what can come next and keep
// one part; when it has become small, its settled top bytes leave the encoder and the next bytes
// enter the decoder.  The two must do the same arithmetic, in 32 bits.  How the parts are found is
// a method's own matter.
#pragma once

#include "common/bytes.h"

#include <bit>

namespace quarnex {

/// The interval at the start.
inline constexpr u32 full_range = 0xFFFFFFFF;
/// An interval below this has its top byte settled.
inline constexpr u32 least_range = 1U << 24;

/// Bytes that the start of a stream takes.
inline constexpr u32 range_start_bytes = 5;
/// Bytes that the end of a stream writes.
inline constexpr u32 range_flush_bytes = 4;

/// Where an encoder is.
///
/// A byte is written as soon as it leaves `low`, and a carry runs back through what is written: it
/// ends at the first byte that is not 0xFF, at the latest at the stream's first, which is 0.
struct range_encoder {
    u8* out;     // place of the next byte
    u64 low = 0; // lower end of the interval, with a carry in bit 32
    u32 range = full_range;
};

/// Starts a stream at `out` with a byte 0, where every carry would end: none gets there, as the
/// whole interval lies below 2^32.
inline range_encoder start_range_encoder(u8* out)
{
    *out = 0;
    return {out + 1};
}

/// Takes the carry out of `low`, into the bytes that are written.
inline void take_carry(range_encoder& to)
{
    if (to.low >> 32 == 0) return;
    u8* carried = to.out;
    while (++*--carried == 0) {
    }
}

/// Writes the top byte of `low`, carry included.
inline void shift_low(range_encoder& to)
{
    take_carry(to);
    *to.out++ = static_cast<u8>(to.low >> 24);
    to.low = (to.low & (least_range - 1)) << 8;
}

/// Writes the bytes that are settled, one by one: for coders that seldom have one.
inline void normalize(range_encoder& to)
{
    while (to.range < least_range) {
        to.range <<= 8;
        shift_low(to);
    }
}

/// Bits of the whole bytes of `range` that are settled: 0, 8, 16 or 24.  `range` is 1 or more.
constexpr u32 settled_bits(u32 range)
{
    return static_cast<u32>(std::countl_zero(range)) & 24;
}

/// Does what normalize() does, without a branch on the number of bytes.  Writes 4 bytes.
inline void normalize_at_once(range_encoder& to)
{
    take_carry(to);
    const u32 bits = settled_bits(to.range);
    store_u32(to.out, byte_swap(static_cast<u32>(to.low)));
    to.out += bits / 8;
    to.low = static_cast<u32>(to.low) << bits;
    to.range <<= bits;
}

/// Encodes `value`, a number of `count` bits (1 to 24), all of its values equally probable.
inline void encode_direct(range_encoder& to, u32 value, u32 count)
{
    to.range >>= count;
    const u32 skipped = value * to.range;
    to.low += skipped;
    normalize_at_once(to);
}

/// Ends a stream: all of `low` is written.
inline void flush(range_encoder& to)
{
    for (u32 bytes = 0; bytes < range_flush_bytes; ++bytes) shift_low(to);
}

/// Where a decoder is.
struct range_decoder {
    const u8* in; // the next byte
    u32 code;     // the stream's place in the interval, below `range`
    u32 range = full_range;
};

/// Starts to decode at `in`.  In a damaged stream `code` need not be below `range`.
inline range_decoder start_range_decoder(const u8* in)
{
    return {in + range_start_bytes, byte_swap(load_u32(in + 1))};
}

/// Takes the bytes that are needed, one by one: for coders that seldom need one.
inline void normalize(range_decoder& from)
{
    while (from.range < least_range) {
        from.range <<= 8;
        from.code = from.code << 8 | *from.in++;
    }
}

/// Does what normalize() does, without a branch on the number of bytes.  Reads 4 bytes.
inline void normalize_at_once(range_decoder& from)
{
    const u32 bits = settled_bits(from.range);
    const u64 code = u64{from.code} << 32 | byte_swap(load_u32(from.in));
    from.code = static_cast<u32>(code << bits >> 32);
    from.in += bits / 8;
    from.range <<= bits;
}

/// Returns true if the decoder has consumed the stream `begin` to `end` exactly and the stream ends
/// as flush() ends it.
///
/// `code` is the number that the stream forms up to `in`, less the encoder's `low` after the same
/// tokens, in the same scale.  flush() writes all bytes of `low` and no more, so at the end of an
/// encoder's stream `in` is `end` and the difference is 0.  The first byte has been shifted out of
/// the 32 bits of `code`; it is 0, as start_range_encoder() wrote it and no carry gets there.
inline bool ends_at(const range_decoder& from, const u8* begin, const u8* end)
{
    return from.in == end && from.code == 0 && *begin == 0;
}

/// Decodes `count` bits (1 to 24).  In a damaged stream the number can be larger.
inline u32 decode_direct(range_decoder& from, u32 count)
{
    from.range >>= count;
    const u32 value = from.code / from.range;
    from.code -= value * from.range;
    normalize_at_once(from);
    return value;
}

} // namespace quarnex
