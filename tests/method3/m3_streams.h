// method3/m3_streams.h - streams of method 3 from tokens or from bits
#pragma once

#include "plain/m3_plain.h"
#include "support/token_block.h"

#include <numeric>

namespace quarnex::test {

/// A raw byte and tokens, with the block they make.
struct m3_block : token_block {
    m3_block() : token_block({'a'}) {}
    m3_block(token_block block) : token_block(std::move(block)) {}

    bytes stream(u32 min_match = 4) const { return m3_plain_stream(data(), tokens(), min_match); }
};

/// Returns the raw byte 'a' and the bits of `text`, zeros, ones and spaces, padded with zeros.
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

// The longest codes
//
// A sorted alphabet has no codes of 30 bits: each bit takes weights that grow like Fibonacci
// numbers, and the counts are halved before that.  But a period of 4096 symbols ends without a
// sort.  Let weights whose join is a node of weight w be followed by some symbols of weight 1 and
// one symbol L of more than the weight of all of these:
//
//     w    1 1 1 ... 1    L
//
// L, the heaviest, is not joined before the ones have been joined with each other and with the
// node. A single one makes the node a level deeper, 3 make it two, and 8 make it three.  L adds a
// level and doubles the node's weight, and the next such group follows.  The bubble pass at the
// period's end moves each L from before its ones to after them, where the next L, which is heavier,
// is carried on instead.

/// The size of the alphabet.
inline constexpr u32 long_code_symbols = 53;
/// A block length that needs this number of slots.
inline constexpr u32 long_code_block = (64U << 20) - 256;
/// Ones in each group, for longest codes of 30 and 31 bits.
inline const std::vector<u32> groups_of_30_bits{1, 1, 1, 3, 3, 8, 8, 8, 8};
inline const std::vector<u32> groups_of_31_bits{1, 3, 3, 3, 3, 4, 8, 8, 8};

/// Returns 4080 + 4096 symbols, after which the longest code has the length of `groups`.
inline std::vector<u32> symbols_of_long_codes(const std::vector<u32>& groups)
{
    // Only symbol 0 up to the last full sort: all others have a count of 1, in some order.
    std::vector<u32> symbols(4080, 0);
    m3_plain_model model(long_code_symbols);
    for (const u32 symbol : symbols) model.step(symbol);

    // The groups lie before symbol 0, which fills the rest of the period.
    const auto ones = std::accumulate(groups.begin(), groups.end(), u32{0});
    u32 place = long_code_symbols - 1 - ones - static_cast<u32>(groups.size());
    u32 weight = place; // of all before the next group
    for (const u32 group : groups) {
        const u32 heavier = weight + group + 1;
        symbols.insert(symbols.end(), heavier - 1, model.pairs[place].sym);
        weight += group + heavier;
        place += group + 1;
    }
    symbols.resize(4080 + 4096, 0);
    return symbols;
}

/// Returns a block with a match for each of `symbols`, its distance slot, after enough bytes.
inline m3_block block_of_distance_slots(const std::vector<u32>& symbols)
{
    m3_block block;
    block.match(60U << 20, 1); // slot 0, the first of the symbols
    for (usize i = 1; i < symbols.size(); ++i) {
        const u32 slot = symbols[i];
        block.match(4, (slot < 4 ? slot : (2 + slot % 2) << (slot / 2 - 1)) + 1);
    }
    return block;
}

} // namespace quarnex::test
