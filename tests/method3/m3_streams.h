// method3/m3_streams.h - streams of method 3 told token by token or bit by bit
#pragma once

#include "plain/m3_plain.h"
#include "support/token_block.h"

#include <numeric>

namespace quarnex::test {

/// A raw byte and some tokens, with the block that they make.
struct m3_block : token_block {
    m3_block() : token_block({'a'}) {}
    m3_block(token_block block) : token_block(std::move(block)) {}

    bytes stream(u32 min_match = 4) const { return m3_plain_stream(data(), tokens(), min_match); }
};

/// Zeros and ones, among spaces, behind the raw byte 'a'; the last byte is filled up with zeros.
inline bytes m3_bits(std::string_view text)
{
    bytes stream{'a'};
    u32 free_bits = 0;
    for (const char bit : text) {
        if (bit == ' ') continue;
        if (free_bits == 0) {
            stream.push_back(0);
            free_bits = 8;
        }
        --free_bits;
        stream.back() = static_cast<u8>(stream.back() | (bit == '1' ? 1U << free_bits : 0));
    }
    return stream;
}

// Codes as long as they come
//
// A sorted alphabet has no codes of 30 bits, as each bit more takes weights that grow like
// Fibonacci numbers, and the counts are halved in time.  But a period of 4096 symbols ends without
// a sort. Behind some weights, the join of which is a node of weight w, let there be some symbols
// of weight 1 and one of more than w and these together:
//
//     w    1 1 1 ... 1    L
//
// L, heavier than all of them, doesn't come to the front before the ones are joined with each other
// and with the node.  One makes it a level deeper, 3 make it two, and 8 make it three.  L is one
// level more and doubles the node, and the next such group follows.  The one pass through the
// symbols at the period's end takes each L from the place before its ones to the one behind them,
// where the next L, which is heavier, is taken on instead.

/// Symbols of the alphabet for this.
inline constexpr u32 long_code_symbols = 53;
/// Blocks of this size have slots of that number.
inline constexpr u32 long_code_block = (64U << 20) - 256;
/// The ones of each group that make 30 bits and 31.
inline const std::vector<u32> groups_of_30_bits{1, 1, 1, 3, 3, 8, 8, 8, 8};
inline const std::vector<u32> groups_of_31_bits{1, 3, 3, 3, 3, 4, 8, 8, 8};

/// 4080 + 4096 symbols, at the end of which the longest code has the bits that `groups` make.
inline std::vector<u32> symbols_of_long_codes(const std::vector<u32>& groups)
{
    // Up to the last full sort only symbol 0 comes: all others have a count of 1, in some order.
    std::vector<u32> symbols(4080, 0);
    m3_plain_model model(long_code_symbols);
    for (const u32 symbol : symbols) model.step(symbol);

    // The groups lie before symbol 0, which takes what is left of the period.
    const auto ones = std::accumulate(groups.begin(), groups.end(), u32{0});
    u32 place = long_code_symbols - 1 - ones - static_cast<u32>(groups.size());
    u32 weight = place; // of all behind which the next group is
    for (const u32 group : groups) {
        const u32 heavier = weight + group + 1;
        symbols.insert(symbols.end(), heavier - 1, model.pairs[place].sym);
        weight += group + heavier;
        place += group + 1;
    }
    symbols.resize(4080 + 4096, 0);
    return symbols;
}

/// A match by whose distance each of `symbols` comes, behind enough bytes for all of them.
inline m3_block block_of_distance_slots(const std::vector<u32>& symbols)
{
    m3_block block;
    block.match(60U << 20, 1); // whose slot is 0, and the first of the symbols
    for (usize i = 1; i < symbols.size(); ++i) {
        const u32 slot = symbols[i];
        block.match(4, (slot < 4 ? slot : (2 + slot % 2) << (slot / 2 - 1)) + 1);
    }
    return block;
}

} // namespace quarnex::test
