// coding/adaptive_counts.h - how often the symbols of an alphabet came, counted in periods
//
// Encoder and decoder count every symbol that passes.  What they code by is made anew from the
// counts at the end of each period, which both reach at the same symbol; in between it lags.
#pragma once

#include "common/types.h"

namespace quarnex {

/// The counts of an alphabet of up to Capacity symbols.  Each is 1 or more.
template <u32 Capacity>
struct adaptive_counts {
    u32 symbols;   // of the alphabet
    u32 total;     // of all counts, at the end of the last period
    u32 period;    // what the counts grow by in this period
    i32 countdown; // what is left of it
    u16 counts[Capacity];
};

/// Makes the first period of `symbols` symbols start, with counts of 1.
template <u32 Capacity>
void start_counts(adaptive_counts<Capacity>& of, u32 symbols, u32 period)
{
    of.symbols = symbols;
    of.total = symbols;
    of.period = period;
    of.countdown = static_cast<i32>(period);
    for (u32 symbol = 0; symbol < symbols; ++symbol) of.counts[symbol] = 1;
}

/// Counts a symbol.  True at the end of the period: then close_period() is due.
template <u32 Step, u32 Capacity>
[[gnu::always_inline]] inline bool count_symbol(adaptive_counts<Capacity>& of, u32 symbol)
{
    of.counts[symbol] = static_cast<u16>(of.counts[symbol] + Step);
    of.countdown -= Step;
    return of.countdown <= 0;
}

/// Halves all counts, upwards, until they can't overflow in a period, and sums them.
template <u32 Limit, u32 Capacity>
void close_period(adaptive_counts<Capacity>& of)
{
    of.total += of.period - static_cast<u32>(of.countdown);
    if (of.total <= Limit) return;
    of.total = 0;
    for (u32 symbol = 0; symbol < of.symbols; ++symbol) {
        of.counts[symbol] = static_cast<u16>((of.counts[symbol] + 1) >> 1);
        of.total += of.counts[symbol];
    }
}

/// Starts the next period: twice as long as the last one, up to Longest.
template <u32 Longest, u32 Capacity>
void open_period(adaptive_counts<Capacity>& of)
{
    if (of.period < Longest) of.period *= 2;
    of.countdown = static_cast<i32>(of.period);
}

} // namespace quarnex
