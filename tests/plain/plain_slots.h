// plain/plain_slots.h - a plain implementation of the values and tokens that methods share
//
// A value is a slot and extra bits.  A token of methods 3 and 4 is a symbol of the main alphabet
// and, for a match, up to two values; the methods differ only in how a symbol is coded.
#pragma once

#include "plain/plain_parse.h"

namespace quarnex::test {

/// Values 0 to 3 are their own slots; from 4 on each power of two is divided into two.
inline u32 plain_slot(u32 value)
{
    if (value <= 3) return value;
    u32 log = 0;
    while (value >> log > 1) ++log;
    return 2 * log + (value >> (log - 1)) % 2;
}

inline u32 plain_slot_extra_bits(u32 slot)
{
    return slot <= 3 ? 0 : slot / 2 - 1;
}

/// The first value of a slot.
inline u32 plain_slot_base(u32 slot)
{
    return slot <= 3 ? slot : (2 + slot % 2) << plain_slot_extra_bits(slot);
}

/// The size of the slot alphabets of a block.
inline u32 plain_slot_count(usize block_len)
{
    return plain_slot(static_cast<u32>(block_len) + 256) + 1;
}

// The main alphabet: literals, short lengths, and an escape to the longer ones.
inline constexpr u32 plain_main_symbols = 288;
inline constexpr u32 plain_first_length = 256;
inline constexpr u32 plain_escape = 287;

/// A writer provides `models`, of which `main(byte)` is the main model after that byte, and
/// `symbol(model, symbol)` and `direct(value, count)`.
template <class Writer, class Model>
void plain_write_value(Writer& writer, Model& model, u32 value)
{
    const u32 slot = plain_slot(value);
    writer.symbol(model, slot);
    if (slot > 3) writer.direct(value - plain_slot_base(slot), plain_slot_extra_bits(slot));
}

/// Writes a token that stands at `pos`, 1 or more.
template <class Writer>
void plain_write_token(Writer& writer, const bytes& block, usize pos, const plain_token& token,
                       u32 min_match)
{
    auto& main = writer.models.main(block.at(pos - 1));
    if (token.dist == 0) {
        writer.symbol(main, block.at(pos));
        return;
    }
    const u32 over = token.len - min_match;
    if (over <= 30) {
        writer.symbol(main, plain_first_length + over);
    } else {
        writer.symbol(main, plain_escape);
        plain_write_value(writer, writer.models.len_model, over - 31);
    }
    plain_write_value(writer, writer.models.dist_model, token.dist - 1);
}

/// Writes tokens that start after the first byte of `block`.
template <class Writer>
void plain_write_tokens(Writer& writer, const bytes& block, const std::vector<plain_token>& tokens,
                        u32 min_match)
{
    usize pos = 1;
    for (const plain_token& token : tokens) {
        plain_write_token(writer, block, pos, token, min_match);
        pos += token.len;
    }
}

/// Writes the choices of level 8 or 9, at the current prices: the writer also provides
/// `symbol_price(model, symbol)` and the prices of an extra bit of a length and of a distance.
template <class Writer>
void plain_write_parse(Writer& writer, const bytes& block, const plain_rules& rules, u32 level)
{
    const u32 min_match = level == 8 ? 3 : 2;
    const auto value_price = [&](auto& model, u32 value, u32 price_of_bit) {
        const u32 slot = plain_slot(value);
        return writer.symbol_price(model, slot) + plain_slot_extra_bits(slot) * price_of_bit;
    };
    const auto literal_price = [&](u32 pos) {
        return writer.symbol_price(writer.models.main(block[pos - 1]), block[pos]);
    };
    const auto match_price = [&](u32 pos, u32 len, u32 dist) {
        auto& main = writer.models.main(block[pos - 1]);
        const u32 over = len - min_match;
        const u32 len_price =
            over <= 30 ? writer.symbol_price(main, plain_first_length + over)
                       : writer.symbol_price(main, plain_escape) +
                             value_price(writer.models.len_model, over - 31, writer.len_bit_price);
        return len_price + value_price(writer.models.dist_model, dist - 1, writer.dist_bit_price);
    };
    const auto write = [&](u32 pos, const plain_token& token) {
        plain_write_token(writer, block, pos, token, min_match);
    };
    plain_parse(block, rules, level, min_match, {literal_price, match_price, write});
}

/// A reader provides the same as a writer, with the value or symbol as result.
template <class Reader, class Model>
u32 plain_read_value(Reader& reader, Model& model)
{
    const u32 slot = reader.symbol(model);
    if (slot <= 3) return slot;
    return plain_slot_base(slot) + reader.direct(plain_slot_extra_bits(slot));
}

/// Reads the block of `out_len` bytes that starts with the byte `first`.
template <class Reader>
bytes plain_read_tokens(Reader& reader, u8 first, usize out_len, u32 min_match)
{
    bytes out{first};
    while (out.size() < out_len) {
        const u32 symbol = reader.symbol(reader.models.main(out.back()));
        if (symbol < plain_first_length) {
            out.push_back(static_cast<u8>(symbol));
            continue;
        }
        u32 len = symbol - plain_first_length + min_match;
        if (symbol == plain_escape) len += plain_read_value(reader, reader.models.len_model);
        const u32 dist = plain_read_value(reader, reader.models.dist_model) + 1;
        for (u32 i = 0; i < len; ++i) out.push_back(out.at(out.size() - dist));
    }
    out.resize(out_len); // the last match may have passed the block's end
    return out;
}

} // namespace quarnex::test
