// method3/m3_model.h - codes that both sides make from what has passed
//
// A model counts the symbols of an alphabet and has a prefix code for them, made from the counts at
// the end of each period.  The code is known by the order of the symbols, from the longest codes to
// the shortest, and by the number of codes of each length; from these each side makes its tables.
#pragma once

#include "coding/adaptive_counts.h"
#include "coding/value_slot.h"
#include "method3/m3_format.h"
#include "method3/m3_sort.h"

#include <array>
#include <span>

namespace quarnex {

/// How many codes there are of each length.
struct m3_code_shape {
    u32 longest = 0; // can be above m3_max_code_bits: then `codes` lacks what is longer
    std::array<u16, m3_max_code_bits + 1> codes{};
};

/// The lengths of the cheapest prefix code for `weights`, of which there are 3 or more: they rise,
/// and the lengths fall.  (If they don't quite rise, the code is complete, but not the cheapest.)
/// Overwrites the weights.  Their sum is below 2^16.
m3_code_shape m3_code_lengths(std::span<u16> weights);

/// Finds the order of an alphabet's symbols from their counts: sorts `pairs` if `full_sort`, or
/// mends the order that they have.  Returns the shape of their code.
m3_code_shape m3_rebuild(const u16* counts, std::span<m3_pair> pairs, bool full_sort);

/// What a decoder looks up.
template <u32 Capacity>
struct m3_decoder_tables {
    /// By the next bits of the stream: the symbol, above the length of its code; no_entry if the
    /// code is longer than the index.
    static constexpr u32 lookup_bits = 10;
    static constexpr u32 length_bits = 4;
    static constexpr u16 no_entry = 0;
    /// Entries are written in groups.
    static constexpr u32 group = 8;

    u16 lookup[(1U << lookup_bits) + group];
    u16 symbols[Capacity]; // those with longer codes, longest first
    /// By the length of a longer code: the lowest code of the length, and its place in `symbols`.
    u16 first_code[m3_max_code_bits + 1];
    u16 first_index[m3_max_code_bits + 1];
};

/// A code and its length in bits.  The longest codes have the lowest values, so that the value of
/// the longest, too, has no more than 16 bits that are not zero.
struct m3_code {
    u16 code;
    u16 length;
};

/// What an encoder looks up: the codes by symbol.
template <u32 Capacity>
struct m3_encoder_tables {
    m3_code codes[Capacity];
};

/// Makes the tables of a code from its shape and from the order of its symbols.
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
    bool too_long;           // whether some code would have been longer than m3_max_code_bits
    m3_pair pairs[Capacity]; // in the order of the last rebuild, from which the next one starts
    Tables<Capacity> tables;
};

/// Makes the code anew, from the counts.
template <template <u32> class Tables, u32 Capacity>
void m3_renew_code(m3_model<Tables, Capacity>& model, bool full_sort)
{
    const std::span pairs(model.pairs, model.counts.symbols);
    const m3_code_shape shape = m3_rebuild(model.counts.counts, pairs, full_sort);
    if (shape.longest > m3_max_code_bits) {
        model.too_long = true;
        return;
    }
    m3_make_tables(shape, pairs, model.tables);
}

/// Starts a model of `symbols` symbols, all of them equally probable.
template <template <u32> class Tables, u32 Capacity>
void m3_model_init(m3_model<Tables, Capacity>& model, u32 symbols)
{
    start_counts(model.counts, symbols, m3_first_period);
    model.too_long = false;
    for (u32 sym = 0; sym < symbols; ++sym) model.pairs[sym].sym = static_cast<u16>(sym);
    m3_renew_code(model, true);
}

/// Ends a period.
template <template <u32> class Tables, u32 Capacity>
[[gnu::noinline]] void m3_end_period(m3_model<Tables, Capacity>& model)
{
    close_period<m3_largest_total>(model.counts);
    m3_renew_code(model, model.counts.period < m3_last_period);
    open_period<m3_last_period>(model.counts);
}

/// Counts a symbol that has been coded.  The next one may have another code.
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

    /// Whether each code could be made.
    bool good() const { return !(main.too_long || distance.too_long || length.too_long); }

    m3_model<Tables, main_symbols> main;
    m3_model<Tables, value_slots> distance;
    m3_model<Tables, value_slots> length;
};

} // namespace quarnex
