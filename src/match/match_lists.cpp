#include "match/match_lists.h"

#include "match/lcp_intervals.h"
#include "match/path_lists.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <span>
#include <utility>

namespace quarnex {
namespace {

/// With more small intervals around a position, on average, merging is faster than walking up the
/// tree.
constexpr u32 max_small_nodes = 12;

/// In smaller blocks merging is faster too.
constexpr u32 min_walk_block = 1 << 17;

/// True if there is less than one interval per 64 positions, as in data of one byte.  Nearly all
/// are large then, and merging skips most positions.
bool has_few_intervals(const suffix_arrays& arrays)
{
    // Each rise of the LCP array is the start of an interval.
    u32 rises = 0;
    for (u32 k = 1; k < arrays.size; ++k) rises += arrays.lcp[k] > arrays.lcp[k - 1] ? 1 : 0;
    return rises < arrays.size / 64;
}

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
        if (replaces_match(len, pos - prev, listed, pos - mpos_[pos])) put(pos, prev, len);
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
        assert(members.size() <= max_full_interval);
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

    std::array<u32, max_full_interval> others_;
};

/// Lists the matches of intervals as they end.  The members of open intervals are kept at the start
/// of the suffix array.
class interval_lister {
  public:
    interval_lister(u32* sa, u32 n, const u8* lcp, u32* mpos, u8* mlen)
        : sa_(sa), size_(n), lcp_(lcp), lists_(mpos, mlen)
    {
    }

    u32 add(u32 k)
    {
        if (k + suffix_prefetch_distance < size_)
            lists_.prefetch(sa_[k + suffix_prefetch_distance]);
        sa_[kept_] = sa_[k];
        return kept_++;
    }

    void close(const lcp_interval& ending, u32 next)
    {
        const std::span members(sa_ + ending.mark, kept_ - ending.mark);
        if (next - ending.first > max_full_interval) {
            close_large_interval(members, ending.length, lists_);
            kept_ = ending.mark + 1;
        } else {
            merger_.close(members, lcp_ + ending.first, ending.length, lists_);
        }
    }

    void top(u32 mark) { kept_ = mark; }

  private:
    u32* sa_;
    u32 size_;
    const u8* lcp_;
    list_builder lists_;
    interval_merger merger_;
    u32 kept_ = 0;
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

void sa_match_lists(u32* sa, u32 n, const u8* lcp, u32* mpos, u8* mlen)
{
    interval_lister lister(sa, n, lcp, mpos, mlen);
    visit_lcp_intervals(
        n, [=](u32 k) { return lcp[k] >= min_listed_match ? u32{lcp[k]} : 0; }, lister);
}

owned_array<u8> as_bytes(owned_array<u32> numbers)
{
    const return_memory back = numbers.get_deleter();
    return {reinterpret_cast<u8*>(numbers.release()), back};
}

std::optional<match_lists> find_match_lists(const block_text& text, const allocator& source)
{
    const u32 n = text.size;
    suffix_arrays arrays;
    const bool tree_room =
        can_have_tree(n) && n >= min_walk_block && arrays.allocate(n, true, source);
    if (!tree_room && !arrays.allocate(n, false, source)) return {};
    const bool sorted = arrays.sort(text, match_list_scale);
    match_lists lists;
    if (!tree_room) {
        lists = {make_zeroed_table<u8>(source, n, n), std::move(arrays.by_position)};
    } else {
        if (sorted && !has_few_intervals(arrays) &&
            average_small_nodes(arrays, path_list_options) <= max_small_nodes)
            return path_match_lists(text, arrays, source);
        // In each array there is room for a list before the LCP array or the suffix array.
        lists = {as_bytes(std::move(arrays.by_position)), std::move(arrays.room)};
        std::fill_n(lists.mlen.get(), n, u8{0});
    }
    if (!lists.mlen) return {};
    if (sorted) sa_match_lists(arrays.sa, n, arrays.lcp, lists.mpos.get(), lists.mlen.get());
    return lists;
}

} // namespace quarnex
