#include "method3/m3_model.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace quarnex {
namespace {

/// The first pass of Moffat and Katajainen (1995): builds the Huffman tree in place.
///
/// Joins the two lightest items, leaves or internal nodes, until one node is left; at equal weights
/// a leaf precedes a node.  By the time node i is made, at least the first i + 2 leaves have been
/// joined, so its weight replaces leaf weight i.  Once joined itself, a node holds the index of its
/// parent instead.  The last node is the root.
void join_lightest(std::span<u16> weights)
{
    assert(weights.size() >= 3);
    const u32 last = static_cast<u32>(weights.size()) - 1;
    weights[0] = static_cast<u16>(weights[0] + weights[1]);
    u32 node = 0;
    u32 leaf = 2;
    for (u32 next = 1; next < last; ++next) {
        const auto take = [&](bool from_node) {
            if (!from_node) return weights[leaf++];
            return std::exchange(weights[node++], static_cast<u16>(next));
        };
        const u16 first = take(leaf > last || weights[node] < weights[leaf]);
        const u16 second = take(leaf > last || (node < next && weights[node] < weights[leaf]));
        weights[next] = static_cast<u16>(first + second);
    }
}

} // namespace

m3_code_shape m3_code_lengths(std::span<u16> weights)
{
    join_lightest(weights);
    // The other two passes in one, level by level from the root: each level has twice as many items
    // as the previous one has nodes, and those that are not nodes are leaves.  The nodes of a level
    // have consecutive indices, below those of the previous level.
    m3_code_shape shape;
    u32 parents = static_cast<u32>(weights.size()) - 2; // lowest node index of the previous level
    u32 node = parents;                                 // lowest node index of this level
    u32 nodes = 1;
    for (u32 length = 1; nodes != 0; ++length) {
        const u32 items = 2 * nodes;
        for (nodes = 0; node > 0 && weights[node - 1] >= parents; --node) ++nodes;
        parents = node;
        if (nodes == items) continue;
        shape.longest = length;
        if (length <= m3_max_code_bits) shape.codes[length] = static_cast<u16>(items - nodes);
    }
    return shape;
}

m3_code_shape m3_rebuild(const u16* counts, std::span<m3_pair> pairs, bool full_sort)
{
    for (m3_pair& pair : pairs) pair.freq = counts[pair.sym];
    if (full_sort) {
        m3_order_pairs(pairs);
    } else {
        m3_bubble_pass(pairs);
    }
    std::array<u16, main_symbols> weights;
    std::transform(pairs.begin(), pairs.end(), weights.begin(),
                   [](m3_pair pair) { return pair.freq; });
    return m3_code_lengths(std::span(weights).first(pairs.size()));
}

template <u32 Capacity>
void m3_make_tables(const m3_code_shape& shape, std::span<const m3_pair> pairs,
                    m3_decoder_tables<Capacity>& tables)
{
    constexpr u32 lookup_bits = m3_decoder_tables<Capacity>::lookup_bits;
    constexpr u32 group = m3_decoder_tables<Capacity>::group;
    u32 code = 0;
    u32 index = 0;
    for (u32 length = shape.longest; length > lookup_bits; --length) {
        tables.first_code[length] = static_cast<u16>(code);
        tables.first_index[length] = static_cast<u16>(index);
        index += shape.codes[length];
        code = (code + shape.codes[length]) / 2;
    }
    for (u32 i = 0; i < index; ++i) tables.symbols[i] = pairs[i].sym;

    // A code of up to lookup_bits has an entry for every combination of the bits after it.  The
    // next code overwrites the excess of the last group.
    std::fill_n(tables.lookup, code, m3_decoder_tables<Capacity>::no_entry);
    u16* entry = tables.lookup + code;
    for (u32 length = std::min(shape.longest, lookup_bits); length > 0; --length) {
        const u32 entries = 1U << (lookup_bits - length);
        for (u32 left = shape.codes[length]; left > 0; --left, entry += entries) {
            const u32 value =
                u32{pairs[index++].sym} << m3_decoder_tables<Capacity>::length_bits | length;
            for (u32 i = 0; i < entries; i += group) {
                std::fill_n(entry + i, group, static_cast<u16>(value));
            }
        }
    }
}

template <u32 Capacity>
void m3_make_tables(const m3_code_shape& shape, std::span<const m3_pair> pairs,
                    m3_encoder_tables<Capacity>& tables)
{
    u32 code = 0;
    u32 index = 0;
    for (u32 length = shape.longest; length > 0; --length) {
        for (u32 left = shape.codes[length]; left > 0; --left) {
            tables.codes[pairs[index++].sym] = {static_cast<u16>(code++), static_cast<u16>(length)};
        }
        code /= 2;
    }
}

template void m3_make_tables(const m3_code_shape&, std::span<const m3_pair>,
                             m3_decoder_tables<main_symbols>&);
template void m3_make_tables(const m3_code_shape&, std::span<const m3_pair>,
                             m3_decoder_tables<value_slots>&);
template void m3_make_tables(const m3_code_shape&, std::span<const m3_pair>,
                             m3_encoder_tables<main_symbols>&);
template void m3_make_tables(const m3_code_shape&, std::span<const m3_pair>,
                             m3_encoder_tables<value_slots>&);

} // namespace quarnex
