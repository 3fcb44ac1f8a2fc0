// coding/alphabet_tokens.h - the token writer of the methods with a main alphabet (3 and 4)
#pragma once

#include "coding/main_alphabet.h"

#include <cassert>

namespace quarnex {

/// Writes literals and matches of at least MinMatch bytes as symbols and extra bits.  `Coder` is
/// the entropy encoder:
///
///     put_main(symbol)       encodes a symbol of the main alphabet
///     put_length(slot)       encodes the slot of a length's excess over the short ones
///     put_distance(slot)     encodes the slot of a distance less one
///     put_extra(bits, count) encodes the extra bits of the slot before, 1 to 30
///     set_context(byte)      passes the last byte of the token, after all its symbols
///     full()                 returns true once the stream can't be shorter than the block
///     finish()               ends the stream; returns its length, or 0 if it is unusable
template <u32 MinMatch, class Coder>
class alphabet_tokens {
  public:
    static constexpr u32 first_pos = alphabet_raw_bytes;
    static constexpr u32 min_match = MinMatch;

    /// `text` is the block, whose raw byte the coder has written.
    alphabet_tokens(const u8* text, Coder coder) : text_(text), coder_(coder) {}

    bool full() const { return coder_.full(); }

    void literal(u32 pos)
    {
        coder_.put_main(text_[pos]);
        coder_.set_context(text_[pos]);
    }

    void match(u32 pos, u32 len, u32 dist)
    {
        assert(len >= MinMatch && dist >= 1);
        const u32 above_min = len - MinMatch;
        if (above_min < short_lengths) {
            coder_.put_main(literal_symbols + above_min);
        } else {
            coder_.put_main(long_length_symbol);
            const u32 rest = above_min - short_lengths;
            const u32 slot = value_slot(rest);
            coder_.put_length(slot);
            put_extra(rest, slot);
        }
        const u32 slot = value_slot(dist - 1);
        coder_.put_distance(slot);
        put_extra(dist - 1, slot);
        coder_.set_context(text_[pos + len - 1]);
    }

    u32 finish() { return coder_.finish(); }

  private:
    void put_extra(u32 value, u32 slot)
    {
        if (slot >= plain_slots) coder_.put_extra(value - slot_base(slot), slot_extra_bits(slot));
    }

    const u8* text_;
    Coder coder_;
};

} // namespace quarnex
