// coding/alphabet_tokens.h - the token writer of the methods with a main alphabet
#pragma once

#include "coding/main_alphabet.h"

namespace quarnex {

/// Writes literals and matches of at least MinMatch bytes as symbols and extra bits, which `Coder`
/// turns into a stream:
///
///     put_main(symbol)       a symbol of the main alphabet
///     put_length(slot)       the slot of what a length has above the short ones
///     put_distance(slot)     the slot of a distance less one
///     put_extra(bits, count) the extra bits of the slot before, 1 to 30
///     follow(byte)           the last byte of the token, behind all that is written for it
///     full()                 whether the stream can't be shorter than the block any more
///     finish()               ends the stream; its length, or 0 if it is of no use
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
        coder_.follow(text_[pos]);
    }

    void match(u32 pos, u32 len, u32 dist)
    {
        const u32 above = len - MinMatch;
        if (above < short_lengths) {
            coder_.put_main(literal_symbols + above);
        } else {
            coder_.put_main(long_length_symbol);
            const u32 rest = above - short_lengths;
            const u32 slot = value_slot(rest);
            coder_.put_length(slot);
            put_extra(rest, slot);
        }
        const u32 slot = value_slot(dist - 1);
        coder_.put_distance(slot);
        put_extra(dist - 1, slot);
        coder_.follow(text_[pos + len - 1]);
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
