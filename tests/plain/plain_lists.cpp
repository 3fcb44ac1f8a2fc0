#include "plain/plain_lists.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <span>
#include <string_view>

namespace quarnex::test {
namespace {

constexpr u32 shortest = 3;
constexpr u32 longest = 255;
constexpr usize largest_whole_class = 16384;

/// All positions, by the bytes that stand there; the order of those that agree in the longest
/// match doesn't matter.
std::vector<u32> sorted_positions(const bytes& block)
{
    const std::string_view text(reinterpret_cast<const char*>(block.data()), block.size());
    std::vector<u32> sorted(block.size());
    std::iota(sorted.begin(), sorted.end(), 0U);
    std::sort(sorted.begin(), sorted.end(),
              [&](u32 a, u32 b) { return text.substr(a, longest) < text.substr(b, longest); });
    return sorted;
}

u32 agreeing_bytes(const bytes& block, u32 a, u32 b)
{
    u32 len = 0;
    while (len < longest && std::max(a, b) + len < block.size() && block[a + len] == block[b + len])
        ++len;
    return len;
}

/// How many bytes each of the sorted positions has in common with the one before it.
std::vector<u32> shared_lengths(const bytes& block, const std::vector<u32>& sorted)
{
    std::vector<u32> shared(block.size(), 0);
    for (usize i = 1; i < sorted.size(); ++i)
        shared[i] = agreeing_bytes(block, sorted[i - 1], sorted[i]);
    return shared;
}

/// Enters a match of `len` bytes; one that is a little longer must be much farther away to go.
void offer(plain_lists& lists, u32 pos, u32 len, u32 match_pos)
{
    const u32 held_dist = pos - lists.pos[pos];
    const u32 longer = lists.len[pos] - len;
    if (lists.len[pos] == 0 || (longer == 1 && pos - match_pos < held_dist >> 5) ||
        (longer == 2 && pos - match_pos < held_dist >> 9)) {
        lists.len[pos] = len;
        lists.pos[pos] = match_pos;
    }
}

/// Offers the positions of a class, which agree in `len` bytes, to each other.
void offer_class(plain_lists& lists, std::span<const u32> members, u32 len)
{
    std::vector<u32> taken;
    for (const u32 pos : members)
        if (members.size() <= largest_whole_class || lists.len[pos] == 0) taken.push_back(pos);
    std::sort(taken.begin(), taken.end(), std::greater<>());
    for (usize i = 0; i + 1 < taken.size(); ++i) offer(lists, taken[i], len, taken[i + 1]);
}

} // namespace

plain_lists plain_match_lists(const bytes& block)
{
    const std::vector<u32> sorted = sorted_positions(block);
    const std::vector<u32> shared = shared_lengths(block, sorted);
    plain_lists lists{std::vector<u32>(block.size(), 0), std::vector<u32>(block.size(), 0)};
    for (u32 len = longest; len >= shortest; --len) {
        for (usize first = 0, next = 0; first < block.size(); first = next) {
            bool all_agree_in_more = true;
            for (next = first + 1; next < block.size() && shared[next] >= len; ++next)
                all_agree_in_more = all_agree_in_more && shared[next] > len;
            if (!all_agree_in_more)
                offer_class(lists, std::span(sorted).subspan(first, next - first), len);
        }
    }
    return lists;
}

} // namespace quarnex::test
