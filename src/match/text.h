// match/text.h - the block as a match finder reads it
//
// Positions are counted from the block's start.  The bytes after the block are zero, and some of
// them are read: candidates are verified by a four-byte load without testing for the block's end.
// So a match that starts in the last positions can extend past the end.
#pragma once

#include "common/bytes.h"
#include "common/equal_bytes.h"
#include "match/hash4.h"

#include <algorithm>
#include <cassert>

namespace quarnex {

/// Bytes past the block that the hash searches may read.  Their decisions depend on at most the
/// first eight; the others are hashed only to prefetch buckets.
inline constexpr u32 search_reads_past = 24;
static_assert(equal_bytes_overread <= search_reads_past);

struct block_text {
    const u8* data;            // the block, followed by at least search_reads_past readable zeros
    u32 size;                  // bytes in the block
    u32 max_dist = UINT32_MAX; // candidates farther back are rejected

    u32 word(u32 pos) const { return load_u32(data + pos); }
    u32 hash(u32 pos, i32 bits) const { return hash4(word(pos), bits); }
    bool same_byte(u32 a, u32 b) const { return data[a] == data[b]; }
    bool same_two(u32 a, u32 b) const { return load_u16(data + a) == load_u16(data + b); }
    bool same_word(u32 a, u32 b) const { return word(a) == word(b); }
    /// True if the earlier position `cand` is a match for `pos`.
    bool matches(u32 pos, u32 cand) const { return matches_word(word(pos), pos, cand); }
    /// The same, with the four bytes at `pos` at hand: a compiler that can't tell a table from the
    /// block loads them again after a store to the table.
    bool matches_word(u32 word_at_pos, u32 pos, u32 cand) const
    {
        assert(cand < pos);
        return word(cand) == word_at_pos && pos - cand <= max_dist;
    }
    /// Exclusive or of the eight bytes from `a` and from `b` on, the first in the lowest byte.
    u64 difference(u32 a, u32 b) const { return load_u64(data + a) ^ load_u64(data + b); }

    /// Length of the match at `pos` with `cand`, whose first four bytes are known to agree: at
    /// least 4, and never past the block's end beyond those four.
    u32 match_length(u32 pos, u32 cand) const
    {
        assert(same_word(pos, cand));
        if (pos + 4 >= size) return 4;
        return 4 + equal_bytes(data + pos + 4, data + cand + 4, size - pos - 4);
    }

    /// True if the block is followed by `count` zeros: a precondition of all match finders.
    bool is_followed_by_zeros(u32 count) const
    {
        return std::all_of(data + size, data + size + count, [](u8 byte) { return byte == 0; });
    }
};

} // namespace quarnex
