#include "method3/m3_sort.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace quarnex {
namespace {

constexpr u32 first_seed = 123456789;
/// Ranges of up to this size are sorted by insertion.
constexpr usize insertion_size = 30;

bool rises_nowhere(std::span<const m3_pair> pairs)
{
    const auto rises = [](m3_pair a, m3_pair b) { return b.freq > a.freq; };
    return std::adjacent_find(pairs.begin(), pairs.end(), rises) == pairs.end();
}

bool falls_nowhere(std::span<const m3_pair> pairs)
{
    const auto falls = [](m3_pair a, m3_pair b) { return a.freq > b.freq; };
    return std::adjacent_find(pairs.begin(), pairs.end(), falls) == pairs.end();
}

/// Moves the median of the first two entries and the last one to the front.
void order_median(m3_pair& first, m3_pair& second, m3_pair& last)
{
    const m3_pair x = first;
    const m3_pair y = second;
    const m3_pair z = last;
    if (y.freq > x.freq && x.freq < z.freq) {
        second = x;
        first = y.freq > z.freq ? z : y;
        if (y.freq > z.freq) last = y;
    } else if (y.freq > x.freq) {
        std::swap(second, last);
    } else if (x.freq > z.freq) {
        last = x;
        first = y.freq > z.freq ? y : z;
        if (y.freq > z.freq) second = z;
    }
}

/// Cuts a range at its first entry, the pivot, and returns where that has come to stand: before it
/// is nothing above it, and behind it nothing below it.
usize partition(std::span<m3_pair> pairs)
{
    const u16 pivot = pairs[0].freq;
    usize i = 2;
    usize j = pairs.size() - 2;
    while (pairs[i].freq < pivot) ++i;
    while (pairs[j].freq > pivot) --j;
    while (j > i) {
        std::swap(pairs[i], pairs[j]);
        while (pairs[++i].freq < pivot) {
        }
        while (pairs[--j].freq > pivot) {
        }
    }
    std::swap(pairs[0], pairs[j]);
    return j;
}

void sort_by_insertion(std::span<m3_pair> pairs)
{
    if (pairs.size() < 2) return;
    const auto below = [](m3_pair a, m3_pair b) { return a.freq < b.freq; };
    const auto least = std::min_element(pairs.begin() + 1, pairs.end(), below);
    if (below(*least, pairs[0])) std::swap(pairs[0], *least);
    // Nothing is below the first entry, so each other one finds its place behind it.
    for (usize i = 2; i < pairs.size(); ++i) {
        const m3_pair held = pairs[i];
        usize place = i;
        for (; pairs[place - 1].freq > held.freq; --place) pairs[place] = pairs[place - 1];
        pairs[place] = held;
    }
}

/// Lets an entry of the heap 0 to `last` sink to its place.
void sift(std::span<m3_pair> pairs, usize entry, usize last)
{
    const m3_pair held = pairs[entry];
    usize place = entry;
    while (2 * place < last) {
        const bool second = pairs[2 * place + 1].freq > pairs[2 * place].freq;
        const usize child = 2 * place + (second ? 1 : 0);
        if (held.freq >= pairs[child].freq) break;
        pairs[place] = pairs[child];
        place = child;
    }
    if (2 * place == last && held.freq < pairs[last].freq) {
        pairs[place] = pairs[last];
        place = last;
    }
    pairs[place] = held;
}

} // namespace

void m3_order_pairs(std::span<m3_pair> pairs)
{
    if (rises_nowhere(pairs)) {
        std::reverse(pairs.begin(), pairs.end());
        return;
    }
    const auto quarter_bits = static_cast<u32>(std::bit_width(pairs.size() / 4));
    m3_sort_pairs(pairs, pairs.size() < 4 ? 4 : 2 * (2 + quarter_bits), first_seed);
}

void m3_mend_order(std::span<m3_pair> pairs)
{
    for (usize i = 0; i + 1 < pairs.size(); ++i) {
        if (pairs[i].freq > pairs[i + 1].freq) std::swap(pairs[i], pairs[i + 1]);
    }
}

u32 m3_sort_pairs(std::span<m3_pair> pairs, u32 depth, u32 seed)
{
    while (pairs.size() > insertion_size) {
        if (falls_nowhere(pairs)) return seed;
        if (depth-- == 0) {
            m3_heap_sort(pairs);
            return seed;
        }
        seed = seed * 69069 + 362437;
        std::swap(pairs[0], pairs[seed % (pairs.size() - 1)]);
        order_median(pairs[0], pairs[1], pairs.back());
        const usize pivot = partition(pairs);
        seed = m3_sort_pairs(pairs.subspan(pivot + 1), depth, seed);
        pairs = pairs.first(pivot);
    }
    sort_by_insertion(pairs);
    return seed;
}

void m3_heap_sort(std::span<m3_pair> pairs)
{
    if (pairs.empty()) return;
    for (usize entry = (pairs.size() - 1) / 2 + 1; entry-- > 0;) {
        sift(pairs, entry, pairs.size() - 1);
    }
    for (usize last = pairs.size() - 1; last >= 1; --last) {
        std::swap(pairs[0], pairs[last]);
        if (last > 1) sift(pairs, 0, last - 1);
    }
}

} // namespace quarnex
