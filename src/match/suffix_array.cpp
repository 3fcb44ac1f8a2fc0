#include "match/suffix_array.h"

#include <cassert>
#include <divsufsort.h>

namespace quarnex {

void lcp_bytes(const u8* text, const u32* sa, u32 n, lcp_scale scale, u32* work, u8* lcp)
{
    // The Phi permutation: by position, the preceding suffix in the suffix array.
    assert(n != 0);
    constexpr u32 ahead = suffix_prefetch_distance;
    u32* const phi = work;
    phi[sa[0]] = sa[0]; // itself: no predecessor
    for (u32 k = 1; k < n; ++k) {
        if (k + ahead < n) __builtin_prefetch(phi + sa[k + ahead], 1);
        phi[sa[k]] = sa[k - 1];
    }
    // It is overwritten by the permuted LCP array (PLCP): by position, the bytes shared with that
    // suffix, one byte each.  From one position to the next these drop by at most one, so the
    // comparison resumes there.
    u8* const plcp = reinterpret_cast<u8*>(work);
    u32 len = 0;
    for (u32 pos = 0; pos < n; ++pos) {
        if (pos + ahead < n) __builtin_prefetch(text + phi[pos + ahead] + len);
        const u32 preceding = phi[pos];
        u32 shared = 0;
        if (preceding != pos) {
            const u32 room = std::min(scale.longest, n - std::max(pos, preceding));
            if (len < room)
                len += equal_bytes(text + pos + len, text + preceding + len, room - len);
            shared = std::max(len, scale.base) - scale.base;
        }
        plcp[pos] = static_cast<u8>(shared);
        if (len != 0) --len;
    }
    lcp[0] = 0;
    for (u32 k = 1; k < n; ++k) {
        if (k + ahead < n) __builtin_prefetch(plcp + sa[k + ahead]);
        lcp[k] = plcp[sa[k]];
    }
    lcp[n] = 0;
}

bool suffix_arrays::allocate(u32 n, bool twice, const allocator& source)
{
    assert(n != 0 && n <= INT32_MAX);
    size = n;
    room.reset();
    by_position.reset();
    const usize spare = twice ? n : 0;
    const usize lcp_size = usize{n} + 1;
    room = make_zeroed_table<u32>(source, spare + n, spare + n);
    by_position = make_zeroed_table<u32>(source, usize{n} + prefetch_padding, n);
    if (!room || !by_position) return false;
    sa = room.get() + spare;
    if (twice) {
        lcp = reinterpret_cast<u8*>(by_position.get() + n) + 1 - lcp_size;
    } else {
        lcp_memory = make_array<u8>(source, lcp_size);
        lcp = lcp_memory.get();
    }
    return lcp != nullptr;
}

bool suffix_arrays::sort(const block_text& text, lcp_scale lcp_as)
{
    assert(text.size == size);
    scale = lcp_as;
    // The sorter's indexes are signed, but negative only in intermediate steps.
    const auto length = static_cast<saidx_t>(size);
    if (divsufsort(text.data, reinterpret_cast<saidx_t*>(sa), length) != 0) return false;
    u32* const work = sa != room.get() ? room.get() : by_position.get();
    lcp_bytes(text.data, sa, size, scale, work, lcp);
    return true;
}

} // namespace quarnex
