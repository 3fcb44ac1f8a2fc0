// match/text.h - the block as a search sees it
//
// Positions are counted from the block's start.  The bytes behind the block are zero, and a few of
// them are read: a match is found by its first four bytes without a look at the block's end, so one
// that starts in the last few positions can pass the end.
#pragma once

#include "common/bytes.h"
#include "common/equal_bytes.h"
#include "match/hash4.h"

namespace quarnex {

/// Bytes behind the block that the hash searches may read.  They decide by the first eight; buckets
/// are fetched for the words of some positions more.
inline constexpr u32 search_reads_past = 24;
static_assert(equal_bytes_overread <= search_reads_past);

struct block_text {
    const u8* data; // the block, with at least search_reads_past readable bytes behind it
    u32 size;       // bytes in the block
    u32 max_dist = UINT32_MAX; // candidates farther back don't count

    u32 word(u32 pos) const { return load_u32(data + pos); }
    u32 hash(u32 pos, i32 bits) const { return hash4(word(pos), bits); }
    bool same_byte(u32 a, u32 b) const { return data[a] == data[b]; }
    bool same_two(u32 a, u32 b) const { return load_u16(data + a) == load_u16(data + b); }
    bool same_word(u32 a, u32 b) const { return word(a) == word(b); }
    /// Whether there is a match of `cand`, a position in front, at `pos`.
    bool matches(u32 pos, u32 cand) const { return same_word(cand, pos) && pos - cand <= max_dist; }
    /// Where the eight bytes from `a` and from `b` on differ, the first in the lowest byte.
    u64 difference(u32 a, u32 b) const { return load_u64(data + a) ^ load_u64(data + b); }

    /// Length of the match of `cand` at `pos`, of which there is one: at least 4, and beyond that
    /// never past the block's end.
    u32 match_length(u32 pos, u32 cand) const
    {
        if (pos + 4 >= size) return 4;
        return 4 + equal_bytes(data + pos + 4, data + cand + 4, size - pos - 4);
    }
};

} // namespace quarnex
