#include "method3/m3_sort.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace quarnex {
namespace {

constexpr u32 first_seed = 123456789;
/// Ranges up to this size are sorted by insertion.
constexpr usize insertion_size = 30;

bool non_increasing(std::span<const m3_pair> pairs)
{
    const auto rises = [](m3_pair a, m3_pair b) { return b.freq > a.freq; };
    return std::adjacent_find(pairs.begin(), pairs.end(), rises) == pairs.end();
}

bool non_decreasing(std::span<const m3_pair> pairs)
{
    const auto falls = [](m3_pair a, m3_pair b) { return a.freq > b.freq; };
    return std::adjacent_find(pairs.begin(), pairs.end(), falls) == pairs.end();
}

/// Permutes three entries: the median to `first`, the minimum to `second`, the maximum to `last`.
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

/// Partitions a range of 4 or more by its first entry, the pivot (Hoare), and returns the pivot's
/// final index: no entry before it is above it, none after it below it.
///
/// By order_median() the second entry is not above the pivot and the last one not below it: they
/// stop both scans, which need no bounds check.
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
    // The first entry is a sentinel: no other is below it, so the inner loop needs no bounds check.
    for (usize i = 2; i < pairs.size(); ++i) {
        const m3_pair held = pairs[i];
        usize index = i;
        for (; pairs[index - 1].freq > held.freq; --index) pairs[index] = pairs[index - 1];
        pairs[index] = held;
    }
}

/// Sifts an entry of the heap 0 to `last` down.
void sift(std::span<m3_pair> pairs, usize entry, usize last)
{
    const m3_pair held = pairs[entry];
    usize index = entry;
    while (2 * index < last) {
        const bool second = pairs[2 * index + 1].freq > pairs[2 * index].freq;
        const usize child = 2 * index + (second ? 1 : 0);
        if (held.freq >= pairs[child].freq) break;
        pairs[index] = pairs[child];
        index = child;
    }
    if (2 * index == last && held.freq < pairs[last].freq) {
        pairs[index] = pairs[last];
        index = last;
    }
    pairs[index] = held;
}

} // namespace

void m3_order_pairs(std::span<m3_pair> pairs)
{
    if (non_increasing(pairs)) {
        std::reverse(pairs.begin(), pairs.end());
        return;
    }
    const auto quarter_bits = static_cast<u32>(std::bit_width(pairs.size() / 4));
    m3_sort_pairs(pairs, pairs.size() < 4 ? 4 : 2 * (2 + quarter_bits), first_seed);
}

void m3_bubble_pass(std::span<m3_pair> pairs)
{
    for (usize i = 0; i + 1 < pairs.size(); ++i) {
        if (pairs[i].freq > pairs[i + 1].freq) std::swap(pairs[i], pairs[i + 1]);
    }
}

u32 m3_sort_pairs(std::span<m3_pair> pairs, u32 depth, u32 seed)
{
    while (pairs.size() > insertion_size) {
        if (non_decreasing(pairs)) return seed;
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
