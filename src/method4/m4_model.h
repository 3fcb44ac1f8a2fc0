// method4/m4_model.h - adaptive order-1 frequencies of method 4
//
// The main alphabet has one model for each value of the previous byte (or of its lowest bits): a
// plain order-1 model, without mixing of orders.  Slots have one model each for lengths and
// distances.
//
// A model counts the symbols of an alphabet.  At the end of each period the counts are scaled to
// cumulative shares of the coder's interval, in units of 2^-15, which stay fixed until the end of
// the next period.  The textbook form (Witten, Neal and Cleary 1987) updates cumulative counts at
// every symbol, O(alphabet) or O(log) with a binary indexed tree (Fenwick 1994), and divides by
// their total; fixed shares with a power of two as total replace both by a shift.
//
// A decoder finds the symbol of a position in the interval by a table of 128 starting points and a
// short linear search (coding/share_search.h).
//
// Memory: 305 KiB for an encoder, 370 KiB for a decoder.
#pragma once

#include "coding/adaptive_counts.h"
#include "coding/codec_state.h"
#include "coding/prefix_scan.h"
#include "coding/share_search.h"
#include "coding/value_slot.h"
#include "method4/m4_format.h"

namespace quarnex {

static_assert(whole_interval == 1U << m4_total_bits);

/// Starting points of the symbol search: for each group of 2^unit_bits units, the symbol whose
/// share contains the group's first unit, or the symbol before it.  A table of twice the size saves
/// 3 to 4 % of the time where shares are small (images, machine code, tables), but costs up to 3 %
/// in text, where the tables of many contexts evict each other from the cache.
struct m4_lookup {
    static constexpr u32 unit_bits = 8;
    static constexpr u32 units = 1U << (m4_total_bits - unit_bits);
    u16 first[units + scan_group]; // one more than units, padded to whole groups
};

/// An encoder needs no table.
struct m4_no_lookup {};

/// The model of an alphabet of up to Capacity symbols, aligned to cache lines.
template <class Lookup, u32 Capacity>
struct alignas(64) m4_model {
    adaptive_counts<Capacity> counts;
    /// Symbol s has the share from cum[s] to cum[s + 1].  The entries after the last symbol's end
    /// are whole_interval, the sentinels of the search.
    u16 cum[Capacity + 1 + word_lanes];
    [[no_unique_address]] Lookup lookup;
};

/// Scales the counts to shares.
template <class Lookup, u32 Capacity>
void m4_model_scale(m4_model<Lookup, Capacity>& model);

/// Starts a model of `symbols` symbols with equal counts.
template <class Lookup, u32 Capacity>
void m4_model_init(m4_model<Lookup, Capacity>& model, u32 symbols)
{
    start_counts(model.counts, symbols, m4_first_period);
    // m4_model_scale() reads whole groups of counts.
    for (u32 symbol = symbols; symbol < Capacity; ++symbol) model.counts.counts[symbol] = 0;
    m4_model_scale(model);
}

/// Ends a period.
template <class Lookup, u32 Capacity>
[[gnu::noinline]] void m4_end_period(m4_model<Lookup, Capacity>& model)
{
    close_period<m4_max_total>(model.counts);
    m4_model_scale(model);
    open_period<m4_max_period>(model.counts);
}

/// Counts a symbol that has been coded.  This may change the shares.
template <u32 Step, class Lookup, u32 Capacity>
[[gnu::always_inline]] inline void m4_model_step(m4_model<Lookup, Capacity>& model, u32 symbol)
{
    if (count_symbol<Step>(model.counts, symbol)) [[unlikely]]
        m4_end_period(model);
}

/// All models of a block.
template <class Lookup>
struct m4_state {
    m4_model<Lookup, main_symbols> main[m4_contexts]; // by context
    m4_model<Lookup, value_slots> distance;
    m4_model<Lookup, value_slots> length;

    /// Starts the models for a block of `len` bytes.
    void start(u32 len)
    {
        m4_model_init(main[0], main_symbols);
        for (u32 context = 1; context < m4_contexts; ++context) main[context] = main[0];
        m4_model_init(distance, slot_count(len));
        m4_model_init(length, slot_count(len));
    }
};
using m4_enc_state = m4_state<m4_no_lookup>;
using m4_dec_state = m4_state<m4_lookup>;

inline constexpr auto m4_encoder_init = init_state<m4_enc_state>;
inline constexpr auto m4_encoder_release = release_state<m4_enc_state>;
inline constexpr auto m4_decoder_init = init_state<m4_dec_state>;
inline constexpr auto m4_decoder_release = release_state<m4_dec_state>;

} // namespace quarnex
