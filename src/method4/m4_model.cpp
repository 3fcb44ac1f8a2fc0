#include "method4/m4_model.h"

#include <algorithm>
#include <span>

namespace quarnex {
namespace {

/// Rounds `count` up to a multiple of scan_group.
constexpr u32 whole_groups(u32 count)
{
    return (count + scan_group - 1) / scan_group * scan_group;
}

void fill_lookup(m4_no_lookup& /*lookup*/, std::span<const u16> /*ends*/) {}

/// `ends` are the ends of the symbols' shares.
void fill_lookup(m4_lookup& lookup, std::span<const u16> ends)
{
    // The entry after that of the group of units in which a share ends is the following symbol; if
    // several shares end there, the last one counts.  All other entries repeat the one before.
    std::fill(std::begin(lookup.first), std::end(lookup.first), u16{0});
    const auto last_symbol = static_cast<u32>(ends.size()) - 1;
    for (u32 symbol = 0; symbol < last_symbol; ++symbol)
        lookup.first[(ends[symbol] >> m4_lookup::unit_bits) + 1] = static_cast<u16>(symbol + 1);
    prefix_maxima(lookup.first, static_cast<u32>(std::size(lookup.first)));
}

} // namespace

template <class Lookup, u32 Capacity>
void m4_model_scale(m4_model<Lookup, Capacity>& model)
{
    static_assert(Capacity == whole_groups(Capacity));
    const u32 symbols = model.counts.symbols;
    // Shares end at 2^15 or before.
    const u32 scale = (1U << 31) / model.counts.total;
    model.cum[0] = 0;
    scale_prefix_sums(model.counts.counts, whole_groups(symbols), scale, model.cum + 1);
    std::fill_n(model.cum + 1 + symbols, word_lanes, static_cast<u16>(whole_interval));
    fill_lookup(model.lookup, std::span(model.cum + 1, symbols));
}

template void m4_model_scale(m4_model<m4_no_lookup, main_symbols>&);
template void m4_model_scale(m4_model<m4_no_lookup, value_slots>&);
template void m4_model_scale(m4_model<m4_lookup, main_symbols>&);
template void m4_model_scale(m4_model<m4_lookup, value_slots>&);

} // namespace quarnex
