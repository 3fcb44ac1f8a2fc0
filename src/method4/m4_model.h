// method4/m4_model.h - how probable the symbols of method 4 are
//
// A model counts the symbols of an alphabet.  At the end of each period it scales the counts to
// shares of the coder's interval, by which symbols are coded until the next one.
#pragma once

#include "coding/adaptive_counts.h"
#include "coding/codec_state.h"
#include "coding/sorted_search.h"
#include "coding/value_slot.h"
#include "method4/m4_format.h"

namespace quarnex {

/// Where the search of a symbol starts: for each 2^unit_bits units of the interval the symbol in
/// whose share they begin, or end the one before.  A finer table would hardly shorten the search,
/// which takes several symbols in a step, and the tables of all contexts would fill the cache.
struct m4_lookup {
    static constexpr u32 unit_bits = 8;
    static constexpr u32 units = 1U << (m4_total_bits - unit_bits);
    /// Entries are written in groups.
    static constexpr u32 group = 8;

    u16 first[units + 1 + group];
};

/// What an encoder has instead.
struct m4_no_lookup {};

/// The model of an alphabet of up to Capacity symbols, in as few lines of the cache as it needs.
template <class Lookup, u32 Capacity>
struct alignas(64) m4_model {
    adaptive_counts<Capacity> counts;
    /// Where the share of a symbol starts, and the next one's; behind the end of the last one,
    /// numbers above all shares.
    u16 cum[Capacity + 1 + sorted_group];
    [[no_unique_address]] Lookup lookup;
};

/// Scales the counts to shares.
template <class Lookup, u32 Capacity>
void m4_model_scale(m4_model<Lookup, Capacity>& model);

/// Starts a model of `symbols` symbols, all of them equally probable.
template <class Lookup, u32 Capacity>
void m4_model_init(m4_model<Lookup, Capacity>& model, u32 symbols)
{
    start_counts(model.counts, symbols, m4_first_period);
    for (u16& share : model.cum) share = 0xFFFF;
    m4_model_scale(model);
}

/// Ends a period.
template <class Lookup, u32 Capacity>
[[gnu::noinline]] void m4_end_period(m4_model<Lookup, Capacity>& model)
{
    close_period<m4_largest_total>(model.counts);
    m4_model_scale(model);
    open_period<m4_last_period>(model.counts);
}

/// Counts a symbol that has been coded.
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
