// coding/adaptive_counts.h - symbol frequencies of an adaptive model, updated in periods
//
// Encoder and decoder count each symbol after coding it.  Coding tables are rebuilt from the counts
// at the end of each period only; both sides reach it at the same symbol.  Rebuilding them
// after every symbol would be more precise, and far more expensive than the coding itself.
//
// Periods double up to a maximum: tables follow the first symbols closely and cost next to nothing
// later.  Counts are halved when their sum passes a limit, which both keeps them in 16 bits and
// weights recent symbols higher.
#pragma once

#include "common/types.h"

#include <cassert>

namespace quarnex {

/// The counts of an alphabet of up to Capacity symbols.  Each count is 1 or more.
template <u32 Capacity>
struct adaptive_counts {
    u32 symbols;   // size of the alphabet
    u32 total;     // sum of all counts at the end of the last period
    u32 period;    // growth of the sum in this period
    i32 countdown; // remaining growth
    u16 counts[Capacity];
};

/// Starts the first period of an alphabet of `symbols` symbols, with counts of 1.
template <u32 Capacity>
void start_counts(adaptive_counts<Capacity>& stats, u32 symbols, u32 period)
{
    assert(symbols <= Capacity);
    stats.symbols = symbols;
    stats.total = symbols;
    stats.period = period;
    stats.countdown = static_cast<i32>(period);
    for (u32 symbol = 0; symbol < symbols; ++symbol) stats.counts[symbol] = 1;
}

/// Adds Step to the count of a symbol.  Returns true at the end of the period: the caller then
/// calls close_period(), rebuilds its tables and calls open_period().
template <u32 Step, u32 Capacity>
[[gnu::always_inline]] inline bool count_symbol(adaptive_counts<Capacity>& stats, u32 symbol)
{
    assert(symbol < stats.symbols);
    stats.counts[symbol] = static_cast<u16>(stats.counts[symbol] + Step);
    stats.countdown -= Step;
    return stats.countdown <= 0;
}

/// Updates the sum.  If it is above MaxTotal, halves all counts, rounding up.
template <u32 MaxTotal, u32 Capacity>
void close_period(adaptive_counts<Capacity>& stats)
{
    stats.total += stats.period - static_cast<u32>(stats.countdown);
    if (stats.total <= MaxTotal) return;
    stats.total = 0;
    for (u32 symbol = 0; symbol < stats.symbols; ++symbol) {
        stats.counts[symbol] = static_cast<u16>((stats.counts[symbol] + 1) >> 1);
        stats.total += stats.counts[symbol];
    }
}

/// Starts the next period: twice as long as the previous one, up to MaxPeriod.
template <u32 MaxPeriod, u32 Capacity>
void open_period(adaptive_counts<Capacity>& stats)
{
    if (stats.period < MaxPeriod) stats.period *= 2;
    stats.countdown = static_cast<i32>(stats.period);
}

} // namespace quarnex
