#include "method4/m4_model.h"

#include <algorithm>
#include <span>

namespace quarnex {
namespace {

/// Writes the prefix sums of `count` numbers: of the first one, the first two, and so on.  Reads
/// and writes whole words.  The sum of all numbers is below 2^16.
void sum_up(const u16* numbers, u16* sums, u32 count)
{
    u64 sum = 0;
    for (u32 i = 0; i < count; i += word_lanes) {
        // Each lane of the product is the sum of that lane and all lower ones of the word.
        const u64 lanes = load_lanes(numbers + i) * every_lane;
        store_lanes(sums + i, lanes + sum * every_lane);
        sum += lanes >> 48;
    }
}

void fill_lookup(m4_no_lookup& /*lookup*/, std::span<const u16> /*ends*/) {}

/// `ends` are the ends of the symbols' shares.
void fill_lookup(m4_lookup& lookup, std::span<const u16> ends)
{
    // First marks each group that follows one with the end of a share: the symbol after the last
    // that ends there.  Then each group without a mark gets the symbol of the group before it.
    std::fill(std::begin(lookup.first), std::end(lookup.first), u16{0});
    const auto last_symbol = static_cast<u32>(ends.size()) - 1;
    for (u32 symbol = 0; symbol < last_symbol; ++symbol)
        lookup.first[(ends[symbol] >> m4_lookup::unit_bits) + 1] = static_cast<u16>(symbol + 1);
    u16 symbol = 0;
    for (u16& first : lookup.first) {
        symbol = first != 0 ? first : symbol;
        first = symbol;
    }
}

} // namespace

template <class Lookup, u32 Capacity>
void m4_model_scale(m4_model<Lookup, Capacity>& model)
{
    const u32 symbols = model.counts.symbols;
    u16 sums[Capacity];
    sum_up(model.counts.counts, sums, symbols);
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
