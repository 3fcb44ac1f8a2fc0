#include "match/match_lists.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <divsufsort.h>
#include <span>
#include <utility>

namespace quarnex {
namespace {

/// Intervals with more members only list matches for those that have none yet.
constexpr u32 most_members = 16384;

/// Positions whose texts are fetched ahead of their comparison.
constexpr u32 fetch_ahead = 16;

/// The lists of a block while they grow.
class list_builder {
  public:
    list_builder(u32* mpos, u8* mlen) : mpos_(mpos), mlen_(mlen) {}

    /// Has the list of a position on its way.
    void fetch(u32 pos) const { __builtin_prefetch(mlen_ + pos); }

    bool has_match(u32 pos) const { return mlen_[pos] != 0; }

    /// Tells that `prev` is the nearest position in front of `pos` with which it shares `len`
    /// bytes.  To say it again changes nothing.
    void offer(u32 pos, u32 prev, u32 len)
    {
        const u32 listed = mlen_[pos];
        if (listed == 0) return put(pos, prev, len);
        if (listed > len + 2) return;
        const u32 dist = pos - mpos_[pos];
        if (listed == len + 1 && pos - prev < dist >> 5) return put(pos, prev, len);
        if (listed == len + 2 && pos - prev < dist >> 9) return put(pos, prev, len);
    }

  private:
    void put(u32 pos, u32 prev, u32 len)
    {
        mlen_[pos] = static_cast<u8>(len);
        mpos_[pos] = prev;
    }

    u32* mpos_;
    u8* mlen_;
};

/// Sorts the positions of a large interval that have no match yet to its front, and lists theirs.
/// Only the first one is without a match then, and of use to the intervals around.
void close_large(std::span<u32> members, u32 len, list_builder& lists)
{
    const auto rest = std::remove_if(members.begin(), members.end(),
                                     [&](u32 pos) { return lists.has_match(pos); });
    const auto open = static_cast<usize>(rest - members.begin());
    sort_u32(members.data(), open);
    for (usize k = 1; k < open; ++k) lists.offer(members[k], members[k - 1], len);
}

/// Sorts the positions of an interval, whose parts are sorted, and lists their matches.
///
/// All but the largest part are sorted and then merged into that.  Its members keep their nearest
/// neighbours, which have been offered to them, unless one of the others comes between.
class interval_merger {
  public:
    /// `lcp` are the common prefixes in front of each member; they are `len` where parts meet.
    void close(std::span<u32> members, const u8* lcp, u32 len, list_builder& lists)
    {
        if (members.size() == 2) {
            if (members[0] > members[1]) std::swap(members[0], members[1]);
            lists.offer(members[1], members[0], len);
            return;
        }
        const auto [first, last] = largest_part(lcp, members.size(), len);
        u32* const begin = members.data();
        const usize before = first, behind = members.size() - last;
        std::copy_n(begin, before, others_.data());
        std::copy_n(begin + last, behind, others_.data() + before);
        if (before != 0) std::memmove(begin, begin + first, (last - first) * sizeof(u32));
        sort_u32(others_.data(), before + behind);
        merge(begin, last - first, before + behind, len, lists);
    }

  private:
    /// Where the largest part starts and ends.
    static std::pair<usize, usize> largest_part(const u8* lcp, usize size, u32 len)
    {
        std::pair<usize, usize> largest{0, 0};
        for (usize first = 0; first < size;) {
            const void* const meet =
                std::memchr(lcp + first + 1, static_cast<int>(len), size - first - 1);
            const usize last =
                meet != nullptr ? static_cast<usize>(static_cast<const u8*>(meet) - lcp) : size;
            if (last - first > largest.second - largest.first) largest = {first, last};
            first = last;
        }
        return largest;
    }

    /// Merges the first `count` of the others into the `size` members at `to`, from the back.
    void merge(u32* to, usize size, usize count, u32 len, list_builder& lists) const
    {
        while (count != 0) {
            const u32 other = others_[--count];
            const usize above = size;
            while (size != 0 && to[size - 1] > other) {
                to[size + count] = to[size - 1];
                --size;
            }
            if (size != above) lists.offer(to[size + count + 1], other, len);
            to[size + count] = other;
            if (size != 0 && (count == 0 || to[size - 1] > others_[count - 1])) {
                lists.offer(other, to[size - 1], len);
            } else if (count != 0) {
                lists.offer(other, others_[count - 1], len);
            }
        }
    }

    std::array<u32, most_members> others_;
};

/// An interval of the suffix array that may still grow.
struct open_interval {
    u32 len;   // bytes that its members share
    u32 first; // its first place in the suffix array
    u32 begin; // where its members start among those that are kept
};

} // namespace

void sort_u32(u32* numbers, usize count)
{
    u32* const end = numbers + count;
    if (std::is_sorted(numbers, end, std::greater<>())) {
        std::reverse(numbers, end);
    } else {
        std::sort(numbers, end);
    }
}

bool lcp_bytes(const u8* text, const u32* sa, u32 n, u8* lcp, const allocator& source)
{
    // First by position: the suffix in front, then how many bytes are shared with it.
    const owned_array<u32> shared = make_array<u32>(source, n);
    if (!shared) return false;
    shared[sa[0]] = sa[0];
    for (u32 k = 1; k < n; ++k) shared[sa[k]] = sa[k - 1];
    u32 len = 0;
    for (u32 pos = 0; pos < n; ++pos) {
        if (pos + fetch_ahead < n) __builtin_prefetch(text + shared[pos + fetch_ahead] + len);
        const u32 before = shared[pos];
        if (before != pos) {
            const u32 room = std::min(longest_listed_match, n - std::max(pos, before));
            if (len < room) len += equal_bytes(text + pos + len, text + before + len, room - len);
            shared[pos] = len;
        }
        if (len != 0) --len;
    }
    for (u32 k = 1; k < n; ++k) lcp[k] = static_cast<u8>(shared[sa[k]]);
    return true;
}

void sa_match_lists(u32* sa, u32 n, const u8* lcp, u32* mpos, u8* mlen)
{
    list_builder lists(mpos, mlen);
    interval_merger merger;
    // Those that contain the current place, by rising length.
    std::array<open_interval, longest_listed_match + 2> open;
    usize depth = 0;
    open[0] = {0, 0, 0};
    // The members of open intervals are kept at the front of the suffix array.
    u32 kept = 0;
    for (u32 next = 1; next <= n; ++next) {
        if (next + fetch_ahead <= n) lists.fetch(sa[next + fetch_ahead - 1]);
        u32 first = next - 1;
        u32 begin = kept;
        sa[kept++] = sa[next - 1];
        const u32 len = lcp[next];
        for (; open[depth].len > len; --depth) {
            first = open[depth].first;
            begin = open[depth].begin;
            const std::span members(sa + begin, kept - begin);
            if (open[depth].len < shortest_listed_match) {
                kept = begin;
            } else if (next - first > most_members) {
                close_large(members, open[depth].len, lists);
                kept = begin + 1;
            } else {
                merger.close(members, lcp + first, open[depth].len, lists);
            }
        }
        if (open[depth].len < len) open[++depth] = {len, first, begin};
    }
}

std::optional<match_lists> find_match_lists(const block_text& text, const allocator& source)
{
    const u32 n = text.size;
    // The sorter's numbers have a sign, but use it only on the way.
    const owned_array<u32> sa = make_array<u32>(source, n);
    if (!sa) return {};
    const bool sorted =
        divsufsort(text.data, reinterpret_cast<saidx_t*>(sa.get()), static_cast<saidx_t>(n)) == 0;
    const owned_array<u8> lcp = make_zeroed_array<u8>(source, usize{n} + 1);
    if (!lcp) return {};
    const bool compared = sorted && lcp_bytes(text.data, sa.get(), n, lcp.get(), source);
    match_lists lists{make_zeroed_table<u8>(source, n, n), make_zeroed_table<u32>(source, n, n)};
    if (!lists.mlen || !lists.mpos) return {};
    if (compared) sa_match_lists(sa.get(), n, lcp.get(), lists.mpos.get(), lists.mlen.get());
    return lists;
}

} // namespace quarnex
