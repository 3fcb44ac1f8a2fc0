// coding/alphabet_decoder.h - from symbols and extra bits back to a block
#pragma once

#include "coding/codec.h"
#include "coding/main_alphabet.h"
#include "coding/min_match.h"
#include "common/copy.h"

#include <algorithm>

namespace quarnex {

/// Takes a value whose slot is `slot`.
template <class Source>
[[gnu::always_inline]] inline u32 take_value(Source& from, u32 slot)
{
    if (slot < plain_slots) return slot;
    return slot_base(slot) + from.take_extra(slot_extra_bits(slot));
}

/// Bytes past the block that decode_alphabet() may write.
inline constexpr u32 alphabet_overrun = max_match_overrun(4) + 1 + copy_match_overrun;

/// Decodes tokens with matches of at least MinMatch bytes into a block of `size` bytes, of which
/// the raw one is there.  `Source` takes a stream apart:
///
///     take_main()         a symbol of the main alphabet
///     take_length()       a slot, 0 to 63
///     take_distance()     a slot, 0 to 63
///     take_extra(count)   the extra bits of the slot before, 1 to 30
///     follow(byte)        the last byte of the token
///     good()              false if what was taken was damaged, or lay behind the stream
///     ended()             whether the stream was consumed whole and ended as encoders end it
///
/// The last match is cut one byte past the farthest end that an encoder's match can have, so that
/// its end tells whether it was one.  Returns the number of bytes in the block, fewer at damage,
/// which ends at the first token that reaches before the block or is not good; and whether the
/// block is full and the stream ended as an encoder's.  Writes up to alphabet_overrun bytes past
/// the block.
template <u32 MinMatch, class Source>
codec_result decode_alphabet(Source from, u8* const block, const u32 size)
{
    u32 pos = alphabet_raw_bytes;
    while (pos < size) {
        const u32 symbol = from.take_main();
        u32 end = pos + 1;
        if (symbol < literal_symbols) {
            const auto byte = static_cast<u8>(symbol);
            block[pos] = byte;
            from.follow(byte);
        } else {
            u64 wanted = symbol - literal_symbols + MinMatch;
            if (symbol == long_length_symbol) wanted += take_value(from, from.take_length());
            const u32 offset = take_value(from, from.take_distance());
            if (offset >= pos) return {.length = pos};
            const u32 dist = offset + 1;
            const auto len = static_cast<u32>(
                std::min<u64>(wanted, size + (max_match_overrun(MinMatch) + 1) - pos));
            copy_match(block + pos, dist, len);
            end = pos + len;
            // The copy can still be on its way to memory; where the match doesn't repeat itself,
            // the same bytes are at its source.
            const u32 same_end = end - (dist < len ? 0 : dist);
            from.follow(block[same_end - 1]);
        }
        if (!from.good()) return {.length = pos};
        pos = end;
    }
    return {.length = size, .exact_end = pos - size <= max_match_overrun(MinMatch) && from.ended()};
}

} // namespace quarnex
