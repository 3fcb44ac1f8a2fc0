#include "match/match_lists.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <divsufsort.h>
#include <span>
#include <utility>

namespace quarnex {
namespace {

/// Larger intervals list matches only for members that have none yet.
constexpr u32 max_merged_members = 16384;

/// Positions by which prefetches run ahead.
constexpr u32 prefetch_distance = 16;

/// The lists of a block under construction.
class list_builder {
  public:
    list_builder(u32* mpos, u8* mlen) : mpos_(mpos), mlen_(mlen) {}

    /// Prefetches the entry of a position.
    void prefetch(u32 pos) const { __builtin_prefetch(mlen_ + pos); }

    bool has_match(u32 pos) const { return mlen_[pos] != 0; }

    /// Offers `pos` a match at `prev`, the nearest earlier position that shares `len` bytes.
    /// Lengths do not rise from offer to offer for a position.  Repeating an offer has no effect.
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

/// Closes a large interval: moves its members without a match to its front, sorts them and lists
/// their matches.  Afterwards the first alone has none; the enclosing intervals need no other.
void close_large_interval(std::span<u32> members, u32 len, list_builder& lists)
{
    const auto matched = std::remove_if(members.begin(), members.end(),
                                        [&](u32 pos) { return lists.has_match(pos); });
    const auto count = static_cast<usize>(matched - members.begin());
    sort_u32(members.data(), count);
    for (usize k = 1; k < count; ++k) lists.offer(members[k], members[k - 1], len);
}

/// Closes intervals: merges their parts, which are sorted by position, and lists matches.
///
/// Small-to-large merging: all parts but the largest are sorted together and merged into it.  Its
/// members keep their nearest earlier position, which an inner interval has offered to them, unless
/// a member of another part comes between.
class interval_merger {
  public:
    /// `members` share `len` bytes.  `lcp` is their part of the LCP array; between two parts it is
    /// `len`.
    void close(std::span<u32> members, const u8* lcp, u32 len, list_builder& lists)
    {
        if (members.size() == 2) {
            if (members[0] > members[1]) std::swap(members[0], members[1]);
            lists.offer(members[1], members[0], len);
            return;
        }
        assert(members.size() <= max_merged_members);
        const auto [first, last] = largest_part(lcp, members.size(), len);
        u32* const begin = members.data();
        const usize before = first, after = members.size() - last;
        std::copy_n(begin, before, others_.data());
        std::copy_n(begin + last, after, others_.data() + before);
        if (before != 0) std::memmove(begin, begin + first, (last - first) * sizeof(u32));
        sort_u32(others_.data(), before + after);
        merge(begin, last - first, before + after, len, lists);
    }

  private:
    /// Start and end of the largest part.
    static std::pair<usize, usize> largest_part(const u8* lcp, usize size, u32 len)
    {
        std::pair<usize, usize> largest{0, 0};
        for (usize first = 0; first < size;) {
            const void* const border =
                std::memchr(lcp + first + 1, static_cast<int>(len), size - first - 1);
            const usize last =
                border != nullptr ? static_cast<usize>(static_cast<const u8*>(border) - lcp) : size;
            if (last - first > largest.second - largest.first) largest = {first, last};
            first = last;
        }
        return largest;
    }

    /// Merges the first `count` of the others into the `size` members at `dest`, from the end.
    void merge(u32* dest, usize size, usize count, u32 len, list_builder& lists) const
    {
        while (count != 0) {
            const u32 other = others_[--count];
            const usize old_size = size;
            while (size != 0 && dest[size - 1] > other) {
                dest[size + count] = dest[size - 1];
                --size;
            }
            if (size != old_size) lists.offer(dest[size + count + 1], other, len);
            dest[size + count] = other;
            if (size != 0 && (count == 0 || dest[size - 1] > others_[count - 1])) {
                lists.offer(other, dest[size - 1], len);
            } else if (count != 0) {
                lists.offer(other, others_[count - 1], len);
            }
        }
    }

    std::array<u32, max_merged_members> others_;
};

/// An LCP interval whose end has not been reached.
struct open_interval {
    u32 len;   // bytes that its members share
    u32 first; // its first index in the suffix array
    u32 begin; // index of its first kept member
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
    // The Phi permutation: by position, the preceding suffix in the suffix array.  It is
    // overwritten by the permuted LCP array (PLCP): by position, the bytes shared with that suffix.
    // From one position to the next these drop by at most one, so the comparison resumes there.
    assert(n != 0);
    const owned_array<u32> phi = make_array<u32>(source, n);
    if (!phi) return false;
    phi[sa[0]] = sa[0]; // itself: no predecessor
    for (u32 k = 1; k < n; ++k) phi[sa[k]] = sa[k - 1];
    u32 len = 0;
    for (u32 pos = 0; pos < n; ++pos) {
        if (pos + prefetch_distance < n)
            __builtin_prefetch(text + phi[pos + prefetch_distance] + len);
        const u32 preceding = phi[pos];
        if (preceding != pos) {
            const u32 room = std::min(max_listed_match, n - std::max(pos, preceding));
            if (len < room)
                len += equal_bytes(text + pos + len, text + preceding + len, room - len);
            phi[pos] = len;
        }
        if (len != 0) --len;
    }
    for (u32 k = 1; k < n; ++k) lcp[k] = static_cast<u8>(phi[sa[k]]);
    return true;
}

void sa_match_lists(u32* sa, u32 n, const u8* lcp, u32* mpos, u8* mlen)
{
    list_builder lists(mpos, mlen);
    interval_merger merger;
    assert(n != 0 && lcp[0] == 0 && lcp[n] == 0);
    // Stack of the intervals around the current index, by ascending length.
    std::array<open_interval, max_listed_match + 2> open;
    usize depth = 0;
    open[0] = {0, 0, 0};
    u32 kept = 0; // members of open intervals, kept at the start of `sa`
    for (u32 next = 1; next <= n; ++next) {
        if (next + prefetch_distance <= n) lists.prefetch(sa[next + prefetch_distance - 1]);
        u32 first = next - 1;
        u32 begin = kept;
        sa[kept++] = sa[next - 1];
        const u32 len = lcp[next];
        for (; open[depth].len > len; --depth) {
            first = open[depth].first;
            begin = open[depth].begin;
            const std::span members(sa + begin, kept - begin);
            if (open[depth].len < min_listed_match) {
                kept = begin;
            } else if (next - first > max_merged_members) {
                close_large_interval(members, open[depth].len, lists);
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
    assert(n != 0 && n <= INT32_MAX);
    // The sorter's indexes are signed, but negative only in intermediate steps.
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
