// method3/m3_model.h - adaptive Huffman codes with periodic rebuilds
//
// A model counts the symbols of an alphabet and rebuilds its Huffman code from the counts at the
// end of each period.  One-pass adaptive Huffman coding in the textbook form (Faller 1973, Gallager
// 1978, Vitter 1987) updates the tree at every symbol; a code that is fixed for up to 4096 symbols
// allows table-driven decoding, at the price of a rebuild of at most 288 symbols per period.
//
// A rebuild is three steps:
//
//   1. Symbols are sorted by count (m3_sort.h), starting from the order of the previous rebuild.
//      In the longest periods a single bubble pass, O(n), replaces the sort: the order has hardly
//      changed, and codes slightly off the optimum cost less than the sort.
//   2. Code lengths are computed from the sorted counts: in-place minimum-redundancy coding (Moffat
//      and Katajainen 1995), O(n) time, no memory besides the array of counts.
//   3. Canonical codes (Schwartz and Kallick 1964) follow from the number of codes of each length
//      and the order of the symbols.  The decoder's table maps the next 10 bits to a symbol and its
//      code length; for the few longer codes it walks over the lengths and compares with the lowest
//      code of each.
//
// Memory: 4.5 KiB for the main alphabet of a decoder, nearly half of it the table.
#pragma once

#include "coding/adaptive_counts.h"
#include "coding/value_slot.h"
#include "method3/m3_format.h"
#include "method3/m3_sort.h"

#include <array>
#include <span>

namespace quarnex {

/// The number of codes of each length.
struct m3_code_shape {
    u32 longest = 0; // above m3_max_code_bits if the code is unusable; `codes` then lacks the rest
    std::array<u16, m3_max_code_bits + 1> codes{};
};

/// Returns the code lengths of a Huffman code for `weights`, 3 or more in non-decreasing order,
/// whose sum is below 2^16.  Overwrites the weights.  Weights slightly out of order give a complete
/// code that is not quite optimal.
m3_code_shape m3_code_lengths(std::span<u16> weights);

/// Reorders `pairs` by the counts of their symbols: by a sort if `full_sort`, otherwise by one
/// bubble pass.  Returns the shape of their code.
m3_code_shape m3_rebuild(const u16* counts, std::span<m3_pair> pairs, bool full_sort);

/// The tables of a decoder.
template <u32 Capacity>
struct m3_decoder_tables {
    /// An entry holds, for the next lookup_bits of the stream, the symbol above the length of its
    /// code; no_entry if the code is longer than lookup_bits.
    static constexpr u32 lookup_bits = 10;
    static constexpr u32 length_bits = 4;
    static constexpr u16 no_entry = 0;
    /// Entries are written in groups of this size, which may overrun by less than one group.
    static constexpr u32 group = 8;

    u16 lookup[(1U << lookup_bits) + group];
    u16 symbols[Capacity]; // symbols of the longer codes, longest first
    /// By the length of a longer code: the lowest code, and the index of its symbol in `symbols`.
    u16 first_code[m3_max_code_bits + 1];
    u16 first_index[m3_max_code_bits + 1];
};

/// A code and its length in bits.  The longest codes have the lowest values, so even a code of 30
/// bits has a value below 2^16.
struct m3_code {
    u16 code;
    u16 length;
};

/// The tables of an encoder: codes by symbol.
template <u32 Capacity>
struct m3_encoder_tables {
    m3_code codes[Capacity];
};

/// Builds the tables of a code from its shape and the order of its symbols.
template <u32 Capacity>
void m3_make_tables(const m3_code_shape& shape, std::span<const m3_pair> pairs,
                    m3_decoder_tables<Capacity>& tables);
template <u32 Capacity>
void m3_make_tables(const m3_code_shape& shape, std::span<const m3_pair> pairs,
                    m3_encoder_tables<Capacity>& tables);

/// The model of an alphabet.
template <template <u32> class Tables, u32 Capacity>
struct m3_model {
    adaptive_counts<Capacity> counts;
    bool too_long;           // true if a code would have been longer than m3_max_code_bits
    m3_pair pairs[Capacity]; // in the order of the last rebuild
    Tables<Capacity> tables;
};

/// Rebuilds the code from the counts.
template <template <u32> class Tables, u32 Capacity>
void m3_rebuild_code(m3_model<Tables, Capacity>& model, bool full_sort)
{
    const std::span pairs(model.pairs, model.counts.symbols);
    const m3_code_shape shape = m3_rebuild(model.counts.counts, pairs, full_sort);
    if (shape.longest > m3_max_code_bits) {
        model.too_long = true;
        return;
    }
    m3_make_tables(shape, pairs, model.tables);
}

/// Starts a model of `symbols` symbols with equal counts.
template <template <u32> class Tables, u32 Capacity>
void m3_model_init(m3_model<Tables, Capacity>& model, u32 symbols)
{
    start_counts(model.counts, symbols, m3_first_period);
    model.too_long = false;
    for (u32 sym = 0; sym < symbols; ++sym) model.pairs[sym].sym = static_cast<u16>(sym);
    m3_rebuild_code(model, true);
}

/// Ends a period.
template <template <u32> class Tables, u32 Capacity>
[[gnu::noinline]] void m3_end_period(m3_model<Tables, Capacity>& model)
{
    close_period<m3_max_total>(model.counts);
    m3_rebuild_code(model, model.counts.period < m3_max_period);
    open_period<m3_max_period>(model.counts);
}

/// Counts a symbol that has been coded.  This may change the codes.
template <template <u32> class Tables, u32 Capacity>
[[gnu::always_inline]] inline void m3_model_step(m3_model<Tables, Capacity>& model, u32 sym)
{
    if (count_symbol<1>(model.counts, sym)) [[unlikely]]
        m3_end_period(model);
}

/// The models of a block.
template <template <u32> class Tables>
struct m3_models {
    /// Starts the models for a block of `len` bytes.
    explicit m3_models(u32 len)
    {
        m3_model_init(main, main_symbols);
        m3_model_init(distance, slot_count(len));
        m3_model_init(length, slot_count(len));
    }

    /// Returns false if a code would have been too long.
    bool ok() const { return !(main.too_long || distance.too_long || length.too_long); }

    m3_model<Tables, main_symbols> main;
    m3_model<Tables, value_slots> distance;
    m3_model<Tables, value_slots> length;
};

} // namespace quarnex
