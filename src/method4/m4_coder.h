// method4/m4_coder.h - symbols and plain bits in a range coder
#pragma once

#include "coding/range_coder.h"
#include "coding/sorted_search.h"
#include "method4/m4_model.h"

namespace quarnex {

/// More bytes than the coder moves or loads in a token: up to 3 in each of seven steps, 4 of them
/// at once.
inline constexpr u32 m4_token_max_bytes = 7 * 3 + 4;

/// Encodes the symbol whose share of the interval goes from `low` to `high`, in units of 2^-15.
inline void m4_encode_freq(range_encoder& to, u32 low, u32 high)
{
    const u32 unit = to.range >> m4_total_bits;
    const u32 skipped = low * unit;
    to.low += skipped;
    to.range = (high - low) * unit;
    normalize_at_once(to);
}

/// Encodes `value`, a number of `count` bits (1 to 30), all of its values equally probable: if they
/// are too many for one step, the lowest 24 first.
inline void m4_encode_direct(range_encoder& to, u32 value, u32 count)
{
    if (count > m4_direct_bits) {
        encode_direct(to, value % (1U << m4_direct_bits), m4_direct_bits);
        value >>= m4_direct_bits;
        count -= m4_direct_bits;
    }
    encode_direct(to, value, count);
}

/// Decodes a symbol of a model, which doesn't count it yet.  In a damaged stream it can be behind
/// the last one; then nothing is taken.
template <u32 Capacity>
[[gnu::always_inline]] inline u32 m4_decode_freq(range_decoder& from,
                                                 const m4_model<m4_lookup, Capacity>& model)
{
    const u32 unit = from.range >> m4_total_bits;
    const u32 place = from.code / unit;
    const u32 first = model.lookup.first[place >> m4_lookup::unit_bits];
    const u32 symbol = find_last_not_above(model.cum, first, place);
    if (symbol >= model.counts.symbols) [[unlikely]]
        return symbol;
    const u32 low = model.cum[symbol];
    from.code -= low * unit;
    from.range = (model.cum[symbol + 1] - low) * unit;
    normalize_at_once(from);
    return symbol;
}

/// Decodes a number of `count` bits (1 to 30) as m4_encode_direct() leaves it.  In a damaged stream
/// it can be larger; then `damaged` is set.
inline u32 m4_decode_direct(range_decoder& from, u32 count, bool& damaged)
{
    u32 low = 0;
    u32 low_bits = 0;
    if (count > m4_direct_bits) [[unlikely]] {
        low_bits = m4_direct_bits;
        low = decode_direct(from, low_bits);
        damaged |= low >> low_bits != 0;
    }
    const u32 high = decode_direct(from, count - low_bits);
    damaged |= high >> (count - low_bits) != 0;
    return high << low_bits | low;
}

} // namespace quarnex
