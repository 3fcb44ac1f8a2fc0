#include "method4/m4_model.h"

#include <algorithm>
#include <span>

namespace quarnex {
namespace {

void fill_lookup(m4_no_lookup& /*lookup*/, std::span<const u16> /*ends*/) {}

/// `ends` are the ends of the symbols' shares.
void fill_lookup(m4_lookup& lookup, std::span<const u16> ends)
{
    u16* filled = lookup.first;
    *filled = 0;
    u16 symbol = 0;
    for (const u16 end : ends) {
        u16* const last = lookup.first + (end >> m4_lookup::unit_bits);
        // The next symbol overwrites the excess of the last group.
        do {
            std::fill_n(filled + 1, m4_lookup::group, symbol);
            filled += m4_lookup::group;
        } while (filled < last);
        filled = last;
        ++symbol;
    }
    std::fill(filled + 1, std::end(lookup.first), static_cast<u16>(symbol - 1));
}

} // namespace

template <class Lookup, u32 Capacity>
void m4_model_scale(m4_model<Lookup, Capacity>& model)
{
    const u32 symbols = model.counts.symbols;
    u16 sums[Capacity];
    u32 sum = 0;
    for (u32 symbol = 0; symbol < symbols; ++symbol) {
        sum += model.counts.counts[symbol];
        sums[symbol] = static_cast<u16>(sum);
    }
    // sum * scale >> 16 in two parts of 16 bits, which vectorise: shares end at 2^15 or before.
    const u32 scale = (1U << 31) / model.counts.total;
    const auto high = static_cast<u16>(scale >> 16);
    const auto low = static_cast<u16>(scale);
    model.cum[0] = 0;
    for (u32 symbol = 0; symbol < symbols; ++symbol) {
        const auto rest = static_cast<u16>(u32{sums[symbol]} * low >> 16);
        const auto whole = static_cast<u16>(u32{sums[symbol]} * high);
        model.cum[symbol + 1] = static_cast<u16>(whole + rest);
    }
    fill_lookup(model.lookup, std::span(model.cum + 1, symbols));
}

template void m4_model_scale(m4_model<m4_no_lookup, main_symbols>&);
template void m4_model_scale(m4_model<m4_no_lookup, value_slots>&);
template void m4_model_scale(m4_model<m4_lookup, main_symbols>&);
template void m4_model_scale(m4_model<m4_lookup, value_slots>&);

} // namespace quarnex
