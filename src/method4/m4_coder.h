// method4/m4_coder.h - the frequency-based range coder of method 4: symbols and direct bits
//
// A symbol narrows the interval to its share, in units of 2^-15 (m4_model.h).  As the total is a
// power of two, the only division left is the decoder's, by the unit.
#pragma once

#include "coding/range_coder.h"
#include "coding/share_search.h"
#include "method4/m4_model.h"

namespace quarnex {

/// Maximum bytes that the coder shifts, reads or writes in a token: up to 3 in each of seven steps
/// (three symbols and two groups of extra bits of two steps each), and 4 at once in the last.
inline constexpr u32 m4_token_max_bytes = 7 * 3 + 4;

/// Encodes the symbol whose share of the interval is from `low` to `high`.
inline void m4_encode_freq(range_encoder& encoder, u32 low, u32 high)
{
    assert(low < high && high <= 1U << m4_total_bits);
    const u32 unit = encoder.range >> m4_total_bits;
    const u32 skipped = low * unit;
    encoder.low += skipped;
    encoder.range = (high - low) * unit;
    normalize_at_once(encoder);
}

/// Encodes `value`, a number of `count` bits (1 to 30), with equal probabilities.  If there are too
/// many bits for one step, the lowest max_direct_bits come first.
inline void m4_encode_direct(range_encoder& encoder, u32 value, u32 count)
{
    if (count > max_direct_bits) {
        encode_direct(encoder, value % (1U << max_direct_bits), max_direct_bits);
        value >>= max_direct_bits;
        count -= max_direct_bits;
    }
    encode_direct(encoder, value, count);
}

/// A decoder's position in its interval.  With the model, it determines the next symbol.
struct m4_position {
    u32 unit;  // 2^-15 of the range
    u32 place; // in units; below 2^15 in an intact stream
};

/// Returns the decoder's position.  Contains the division of a symbol.
inline m4_position m4_locate(const range_decoder& decoder)
{
    const u32 unit = decoder.range >> m4_total_bits;
    return {unit, decoder.code / unit};
}

/// Decodes the symbol of a model at the decoder's position, without counting it.  In a damaged
/// stream the result can be one past the last symbol; the decoder's state is then unchanged.
template <u32 Capacity>
[[gnu::always_inline]] inline u32 m4_decode_freq(range_decoder& decoder, const m4_position& at,
                                                 const m4_model<m4_lookup, Capacity>& model)
{
    const auto [unit, place] = at;
    if (place >= whole_interval) [[unlikely]]
        return model.counts.symbols;
    const u32 first = model.lookup.first[place >> m4_lookup::unit_bits];
    const auto [symbol, start, width] = find_share(model.cum, first, place);
    if (symbol >= model.counts.symbols) [[unlikely]]
        return symbol;
    decoder.code -= start * unit;
    decoder.range = width * unit;
    normalize_at_once(decoder);
    return symbol;
}

/// Decodes a number of `count` bits (1 to 30) encoded by m4_encode_direct().  In a damaged stream
/// it can be larger; then `damaged` is set.
inline u32 m4_decode_direct(range_decoder& decoder, u32 count, bool& damaged)
{
    u32 low = 0;
    u32 low_bits = 0;
    if (count > max_direct_bits) [[unlikely]] {
        low_bits = max_direct_bits;
        low = decode_direct(decoder, low_bits);
        damaged |= low >> low_bits != 0;
    }
    const u32 high = decode_direct(decoder, count - low_bits);
    damaged |= high >> (count - low_bits) != 0;
    return high << low_bits | low;
}

} // namespace quarnex
