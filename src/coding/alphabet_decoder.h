// coding/alphabet_decoder.h - the token decoder of the methods with a main alphabet (3 and 4)
//
// The LZ77 loop: literals, matches and their copies.  A method supplies the entropy decoder.
#pragma once

#include "coding/codec.h"
#include "coding/last_match.h"
#include "coding/main_alphabet.h"

#include <cassert>

namespace quarnex {

/// Decodes the rest of a value after its slot.
template <class Source>
[[gnu::always_inline]] inline u32 take_value(Source& source, u32 slot)
{
    if (slot < plain_slots) return slot;
    return slot_base(slot) + source.take_extra(slot_extra_bits(slot));
}

/// Decodes tokens with matches of at least MinMatch bytes into a block of `size` bytes, the first
/// of which, the raw one, is already there.  `Source` is the entropy decoder:
///
///     take_main()         decodes a symbol of the main alphabet
///     take_length()       decodes a slot, 0 to 63
///     take_distance()     decodes a slot, 0 to 63
///     take_extra(count)   decodes the extra bits of the slot before, 1 to 30
///     set_context(byte)   passes the last byte of the token, except at the block's end
///     ok()                returns false if the token is damaged or reads past the stream's end;
///                         called after each token
///     ended()             returns true if the stream is consumed and ends as an encoder ends it
///
/// Decoding stops at the block's end, or before the first token that reaches back past the block's
/// start or isn't ok.
template <u32 MinMatch, class Source>
codec_result decode_alphabet(Source source, u8* const block, const u32 size)
{
    assert(size >= alphabet_raw_bytes);
    const u32 copy_end = whole_copy_end(size, copy_match_32_overrun);
    u32 pos = alphabet_raw_bytes;
    while (pos < size) {
        const u32 symbol = source.take_main();
        u32 end = pos + 1;
        if (symbol < literal_symbols) {
            const auto byte = static_cast<u8>(symbol);
            block[pos] = byte;
            source.set_context(byte);
        } else {
            u64 coded_len = symbol - literal_symbols + MinMatch;
            if (symbol == long_length_symbol) coded_len += take_value(source, source.take_length());
            const u32 offset = take_value(source, source.take_distance());
            if (offset >= pos) return {.length = pos};
            const u32 dist = offset + 1;
            if (pos + coded_len <= copy_end) [[likely]] {
                const auto len = static_cast<u32>(coded_len);
                copy_match_32(block + pos, dist, len);
                end = pos + len;
                // The copy's last stores may still be in flight.  If the match doesn't overlap
                // itself, its source holds the same byte, which can be loaded at once.
                if (dist >= len) [[likely]]
                    source.set_context(block[end - dist - 1]);
                else
                    source.set_context(block[end - 1]);
            } else {
                end = copy_last_match<MinMatch>(block, size, pos, dist, coded_len);
                if (end < size) source.set_context(block[end - 1]);
            }
        }
        if (!source.ok()) return {.length = pos};
        pos = end;
    }
    const bool possible_end = pos - size <= max_match_overrun(MinMatch);
    return {.length = size, .exact_end = possible_end && source.ended()};
}

} // namespace quarnex
