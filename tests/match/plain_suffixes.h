// match/plain_suffixes.h - a suffix array, common prefixes and LCP intervals by their definitions
#pragma once

#include "support/shapes.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <vector>

namespace quarnex::test {

inline std::vector<u32> plain_suffix_array(const bytes& block)
{
    const std::string_view text(reinterpret_cast<const char*>(block.data()), block.size());
    std::vector<u32> sa(block.size());
    std::iota(sa.begin(), sa.end(), 0U);
    std::sort(sa.begin(), sa.end(), [&](u32 a, u32 b) { return text.substr(a) < text.substr(b); });
    return sa;
}

/// By index in the suffix array: the bytes shared with the preceding suffix.  The first is 0.
inline std::vector<u32> plain_lcp(const bytes& block, const std::vector<u32>& sa)
{
    std::vector<u32> lcp(block.size(), 0);
    for (usize k = 1; k < sa.size(); ++k) {
        const u32 later = std::max(sa[k - 1], sa[k]);
        while (later + lcp[k] < block.size() && block[sa[k - 1] + lcp[k]] == block[sa[k] + lcp[k]])
            ++lcp[k];
    }
    return lcp;
}

/// Neighbours in a suffix array that share `length` bytes; two of them share no more.
struct plain_interval {
    u32 length;
    u32 first; // first index
    u32 end;   // last index + 1
    bool operator==(const plain_interval&) const = default;
};

/// The intervals of given common prefixes (the first is ignored), by ascending end and, for the
/// same end, by descending length.
inline std::vector<plain_interval> plain_intervals(const std::vector<u32>& lcp)
{
    std::vector<plain_interval> all;
    const auto size = static_cast<u32>(lcp.size());
    for (u32 k = 1; k < size; ++k) {
        if (lcp[k] == 0) continue;
        u32 first = k, end = k;
        while (first > 1 && lcp[first - 1] >= lcp[k]) --first;
        while (end < size && lcp[end] >= lcp[k]) ++end;
        // An interval is found at each border inside it; the first one counts.
        const auto border = std::find(lcp.begin() + first, lcp.end(), lcp[k]);
        if (border == lcp.begin() + k) all.push_back({lcp[k], first - 1, end});
    }
    std::sort(all.begin(), all.end(), [](const plain_interval& a, const plain_interval& b) {
        return a.end != b.end ? a.end < b.end : a.length > b.length;
    });
    return all;
}

} // namespace quarnex::test
