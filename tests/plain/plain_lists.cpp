#include "plain/plain_lists.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <span>
#include <string_view>

namespace quarnex::test {
namespace {

constexpr u32 min_len = 3;
constexpr u32 max_len = 255;
constexpr usize max_whole_class = 16384;

/// All positions, sorted by their first max_len bytes, in any order where these agree.
std::vector<u32> sorted_positions(const bytes& block)
{
    const std::string_view text(reinterpret_cast<const char*>(block.data()), block.size());
    std::vector<u32> sorted(block.size());
    std::iota(sorted.begin(), sorted.end(), 0U);
    std::sort(sorted.begin(), sorted.end(),
              [&](u32 a, u32 b) { return text.substr(a, max_len) < text.substr(b, max_len); });
    return sorted;
}

u32 agreeing_bytes(const bytes& block, u32 a, u32 b)
{
    u32 len = 0;
    while (len < max_len && std::max(a, b) + len < block.size() && block[a + len] == block[b + len])
        ++len;
    return len;
}

/// The number of bytes that each of the sorted positions shares with the previous one.
std::vector<u32> shared_lengths(const bytes& block, const std::vector<u32>& sorted)
{
    std::vector<u32> shared(block.size(), 0);
    for (usize i = 1; i < sorted.size(); ++i)
        shared[i] = agreeing_bytes(block, sorted[i - 1], sorted[i]);
    return shared;
}

/// Offers a match of `len` bytes, which replaces a slightly longer one if it is much nearer.
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

/// Offers each position of a class, which share `len` bytes, the next smaller one.
void offer_class(plain_lists& lists, std::span<const u32> members, u32 len)
{
    std::vector<u32> taken;
    for (const u32 pos : members)
        if (members.size() <= max_whole_class || lists.len[pos] == 0) taken.push_back(pos);
    std::sort(taken.begin(), taken.end(), std::greater<>());
    for (usize i = 0; i + 1 < taken.size(); ++i) offer(lists, taken[i], len, taken[i + 1]);
}

} // namespace

plain_lists plain_match_lists(const bytes& block)
{
    const std::vector<u32> sorted = sorted_positions(block);
    const std::vector<u32> shared = shared_lengths(block, sorted);
    plain_lists lists{std::vector<u32>(block.size(), 0), std::vector<u32>(block.size(), 0)};
    for (u32 len = max_len; len >= min_len; --len) {
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
