// method1/m1_decoder.cpp - decoder of method 1: byte-aligned LZ77 with control words
//
// A stream of the family of LZRW1 (Williams 1991): flags gathered in control words, whole-byte
// literals and match tokens, no entropy coding.  O(n) time; no memory besides the two buffers.
//
// The textbook decoder tests one flag per item and copies a literal or a match.  Its branch on the
// flag is mispredicted about once a match, and each literal costs a step.  Here one pass of the
// outer loop decodes a control word with the items of its 32 flags, and one pass of the inner loop
// a match with the literals that follow it, copied as 16 bytes whatever their number (32 in the few
// groups that have a longer run).  Literals cost no step of their own: a literal is one byte in the
// stream, one byte in the block and one flag, so inside a group the item of flag f lies at in + f
// and goes to pos + f, with `in` and `pos` advanced by matches alone.
//
// A token's size determines the address of the next one.  To shorten this dependency chain, the
// eight bytes at the lowest address where the next token can start are loaded before the size is
// known, then shifted.  Near (short and medium) and long tokens are told apart by their two lowest
// bits, before any field is extracted: in mixed data this is the branch that is mispredicted, so it
// must resolve early.
//
// Both cursors are tested once a group, for what one group can read and write at most; only escaped
// tokens (a length above 62 + MinMatch or a distance of five bytes) are checked against the
// remaining room.  The group that doesn't fit, those after it and corrupt ones are left to
// m1_last_groups, which decodes one item at a time and makes all the checks.
#include "coding/decoder_forms.h"
#include "coding/payload_tail.h"
#include "common/copy.h"
#include "method1/m1_codec.h"
#include "method1/m1_format.h"

#include <algorithm>
#include <cassert>

namespace quarnex {
namespace {

/// Position of the sentinel that follows the flags of a group.
constexpr u32 m1_end_flag = m1_flags_per_word;
/// A plain match has its length in the first byte of a long token.
constexpr u32 m1_plain_max_len = m1_long_escape - 1 + static_min_match(0);
/// Bytes that the copy of a plain match writes at distances of 16 and more, whatever its length.
constexpr u32 m1_far_copy = 4 * 16 + 8;
static_assert(m1_far_copy >= m1_plain_max_len);
/// Upper bound of the bytes that the copy of a plain match writes.
constexpr u32 m1_plain_copy = m1_plain_max_len + copy_match_overrun;
static_assert(m1_plain_copy >= m1_far_copy);
/// Upper bound of the bytes that the copy of a near match writes: one word or a widened pattern.
constexpr u32 m1_near_copy = 24;
static_assert((1U << m1_medium_len_bits) - 1 + static_min_match(0) <= 16);
static_assert(m1_near_copy <= m1_plain_copy);

constexpr u32 m1_short_run = 16;               // literals copied after a match, in most groups
constexpr u32 m1_long_run = m1_flags_per_word; // and in groups with a longer run
constexpr u32 m1_lookahead_bytes = 16;         // bound of what load_ahead() reads past a token
constexpr u32 m1_group_reads =
    m1_control_bytes + m1_flags_per_word * m1_token_max_bytes + m1_long_run + m1_lookahead_bytes;
constexpr u32 m1_group_writes = m1_flags_per_word * m1_plain_max_len + m1_plain_copy + m1_long_run;
static_assert(copy_match_overrun <= m1_long_run);

// The fields of near tokens by their two lowest bits: short, medium, short.
constexpr bit_field m1_short_dist(1, m1_short_dist_bits);
constexpr bit_field m1_short_len(1 + m1_short_dist_bits, m1_short_len_bits);
constexpr bit_field m1_medium_dist(2, m1_medium_dist_bits);
constexpr bit_field m1_medium_len(2 + m1_medium_dist_bits, m1_medium_len_bits);
constexpr bit_field m1_near_dist[3]{m1_short_dist, m1_medium_dist, m1_short_dist};
constexpr bit_field m1_near_len[3]{m1_short_len, m1_medium_len, m1_short_len};

/// Copies a plain match of a long token.  At distances of 16 and more it writes m1_far_copy bytes:
/// testing the length costs more than the words that it saves.
[[gnu::always_inline]] inline void m1_copy_plain(u8* dest, usize dist, usize len)
{
    if (dist < 16) return copy_match(dest, static_cast<u32>(dist), len);
    const u8* const source = dest - dist;
    copy_16(dest, source);
    copy_16(dest + 16, source + 16);
    copy_16(dest + 32, source + 32);
    copy_16(dest + 48, source + 48);
    copy_8(dest + 64, source + 64);
}

/// Returns a control word with its flags in the order of their use from the lowest bit up.
constexpr u32 m1_reversed(u32 control)
{
    control = (control >> 1 & 0x55555555) | (control & 0x55555555) << 1;
    control = (control >> 2 & 0x33333333) | (control & 0x33333333) << 2;
    control = (control >> 4 & 0x0F0F0F0F) | (control & 0x0F0F0F0F) << 4;
    return byte_swap(control);
}
static_assert(m1_reversed(0x80000001) == 0x80000001 && m1_reversed(0xC0000000) == 3);

/// Returns the position of the lowest set flag.  At least the sentinel is set.
[[gnu::always_inline]] inline usize m1_next_match(u64 flags)
{
    // On 32-bit machines the sentinel is in the upper word, and is meant if the lower one is 0.
    if constexpr (sizeof(usize) == sizeof(u32))
        return static_cast<u32>(std::countr_zero(static_cast<u32>(flags)));
    return static_cast<u32>(__builtin_ctzll(flags)); // std::countr_zero() would test for 0
}

/// Returns the first set flag of a control word as it is in the stream; the word is not 0.  The
/// first token is loaded by it, without waiting for m1_reversed().
[[gnu::always_inline]] inline usize m1_first_match(u32 control)
{
    assert(control != 0);
    return static_cast<u32>(__builtin_clz(control));
}

/// Returns whether more than m1_short_run literals follow a match of a group, the first of which
/// has the flag `first`.
constexpr bool m1_has_long_run(u64 flags, usize first)
{
    u64 close = flags | flags >> 1; // becomes: a match here or at one of the next 16 flags
    close |= close >> 2;
    close |= close >> 4;
    close |= close >> 8;
    close |= flags >> m1_short_run;
    return static_cast<u32>(~close) >> first != 0;
}

/// An item of a group as read: a match token or a literal.
struct m1_item {
    u64 len;
    u32 dist;  // 0: the end token
    u32 bytes; // in the stream
    bool escaped = false;
};
constexpr m1_item m1_literal{1, 1, 1}; // of any distance but 0

/// Reads a long token of any size.
inline m1_item m1_get_long(const u8* in, u32 min_match)
{
    const u32 escape = *in >> 2;
    m1_integer excess{0, 0};
    if (escape == m1_long_escape) excess = m1_get_integer(in + 1);
    const m1_integer dist = m1_get_integer(in + 1 + excess.bytes);
    return {u64{escape} + excess.value + min_match, dist.value, 1 + excess.bytes + dist.bytes,
            m1_is_escaped(load_u16(in))};
}

/// Reads a token of any form.
m1_item m1_get_token(const u8* in, u32 min_match)
{
    const u32 word = load_u32(in);
    if (m1_is_long(word)) return m1_get_long(in, min_match);
    const u32 form = word & m1_long_tag;
    const usize code = portable_bits::extract(word, m1_near_len[form]);
    const usize offset = portable_bits::extract(word, m1_near_dist[form]);
    return {code + min_match, static_cast<u32>(offset) + 1,
            m1_short_bytes + (word & m1_medium_tag)};
}

/// Returns whether the end token at `in` has the form that encoders write and ends the payload.
/// `flag` is the position of its flag, `later_flags` are those after it.
bool m1_is_last_token(const u8* in, const u8* in_end, u32 flag, u32 later_flags)
{
    if (load_u16(in) != m1_end_token || later_flags != 0) return false;
    in += m1_end_bytes;
    if (flag != m1_flags_per_word - 1) return in == in_end;
    // The encoder has started another control word.
    return in + m1_control_bytes == in_end && load_u32(in) == 0;
}

/// The start of a group: its control word in the stream, its first item in the block.
struct m1_group {
    const u8* in;
    usize pos;
};

/// Decodes the end of a stream one item at a time.
class m1_last_groups {
  public:
    m1_last_groups(const codec_job& job, u32 min_match)
        : tail_(job), block_(job.out_buf), size_(job.out_len), min_match_(min_match)
    {
    }

    /// Decodes the groups from `group` on.  Stops after a group that ends past the payload or the
    /// block, at the end token and at a corrupt token.
    codec_result decode(m1_group group)
    {
        at_ = group;
        bool whole = true;
        while (whole && at_.in < tail_.end() && at_.pos < size_) {
            at_.in = tail_.settle(at_.in);
            group = at_;
            whole = decode_group();
        }
        // A group that is cut off doesn't count: its last items are made of zeros.
        if (at_.in > tail_.end()) at_ = group;
        if (at_.pos < size_) return {.length = static_cast<u32>(at_.pos)};
        return {.length = static_cast<u32>(size_), .exact_end = ends_exactly(group)};
    }

  private:
    /// Decodes a control word and its items, those past the block's end too, but writes only in the
    /// block.  Returns false at the end token and at a corrupt token.
    bool decode_group()
    {
        u32 flags = load_u32(at_.in);
        at_.in += m1_control_bytes;
        for (u32 count = m1_flags_per_word; count != 0; --count, flags <<= 1) {
            if (flags >> 31 == 0) {
                if (at_.pos < size_) block_[at_.pos] = *at_.in;
                ++at_.pos;
                ++at_.in;
            } else if (!decode_match()) {
                return false;
            }
        }
        return true;
    }

    /// Returns false, with the cursors unchanged, if the distance is 0 or reaches before the block,
    /// or if the token is escaped and the match starts past the block's end.
    bool decode_match()
    {
        const m1_item item = m1_get_token(at_.in, min_match_);
        if (item.dist == 0 || item.dist > at_.pos) return false;
        usize len = static_cast<usize>(item.len);
        if (at_.pos < size_) {
            const usize room = size_ - at_.pos;
            const auto inside = static_cast<usize>(std::min<u64>(item.len, room));
            copy_match_within(block_ + at_.pos, item.dist, inside, room);
            if (item.escaped) len = inside;
        } else if (item.escaped) {
            return false;
        }
        at_.pos += len;
        at_.in += item.bytes;
        return true;
    }

    /// Returns whether a payload that fills its block ends with it, as encoders end it.  `group` is
    /// the last one that starts in the block; its distances have been checked.
    ///
    /// A second pass over the items of at most two groups.
    bool ends_exactly(m1_group group)
    {
        assert(group.pos <= size_ && group.in <= tail_.end());
        u64 pos = group.pos;
        for (const u8* in = group.in; in < tail_.end();) {
            in = tail_.settle(in);
            const u8* const in_end = tail_.end();
            u32 flags = load_u32(in);
            in += m1_control_bytes;
            for (u32 flag = 0; flag < m1_flags_per_word; ++flag) {
                if (in >= in_end) return false;
                const bool is_match = flags >> 31 != 0;
                flags <<= 1;
                const m1_item item = is_match ? m1_get_token(in, min_match_) : m1_literal;
                if (item.dist == 0) return m1_is_last_token(in, in_end, flag, flags);
                if (pos >= size_) return false; // the stream of a longer block
                pos += item.len;
                if (pos > u64{size_} + max_match_overrun(min_match_)) return false;
                in += item.bytes;
            }
        }
        return false;
    }

    payload_tail<m1_group_reads> tail_;
    u8* const block_;
    const usize size_; // of the block
    const u32 min_match_;
    m1_group at_{};
};

/// Decodes the rest of a block, from `group` on.  Out of line: the decoding loops share it.
[[gnu::noinline]] codec_result m1_decode_rest(const codec_job& job, m1_group group, u32 min_match)
{
    return m1_last_groups(job, min_match).decode(group);
}

/// A stream while its groups are decoded that fit in both buffers.
template <u32 MinMatch, class Bits>
struct m1_decoding {
    const u8* in;
    u8* const begin;   // of the block
    const usize limit; // last position in the block where a group can start
    usize pos = 1;     // in the block

    /// Decodes the block of a job.  The result is shorter than the block if the stream is corrupt.
    [[gnu::always_inline]] static codec_result decode(const codec_job& job)
    {
        if (job.in_len == 0 || job.out_len == 0) return {};
        *job.out_buf = *job.in_buf;
        m1_group group{job.in_buf + 1, 1};
        if (job.in_len >= m1_group_reads && job.out_len >= m1_group_writes) {
            const u8* const in_limit = job.in_buf + (job.in_len - m1_group_reads);
            m1_decoding stream{group.in, job.out_buf, job.out_len - m1_group_writes};
            while (stream.in <= in_limit && stream.pos <= stream.limit && stream.decode_group())
                group = {stream.in, stream.pos};
        }
        return m1_decode_rest(job, group, MinMatch);
    }

    /// Decodes a control word and its items.  Returns false, with the cursors anywhere in it, at a
    /// match that passes `limit`, the end token and a corrupt token.
    [[gnu::always_inline]] bool decode_group()
    {
        const u32 control = load_u32(in);
        in += m1_control_bytes;
        copy_32(begin + pos, in);
        if (control == 0) return end_group();
        const usize first = m1_first_match(control);
        const u64 flags = m1_reversed(control) | u64{1} << m1_end_flag;
        if (m1_has_long_run(flags, first)) return decode_matches<m1_long_run>(flags, first);
        return decode_matches<m1_short_run>(flags, first);
    }

  private:
    /// Decodes the matches of a group, the first at `flag`, and copies `Literals` bytes after each.
    template <u32 Literals>
    [[gnu::always_inline]] bool decode_matches(u64 flags, usize flag)
    {
        u64 token = load_u64(in + flag);
        for (;;) {
            usize next_flag = clear_lowest(flags);
            u64 next = load_ahead(next_flag);
            while (!m1_is_long(token)) {
                if (!decode_near(token, flag)) return false;
                copy_literals<Literals>(flag);
                token = next >> 8 * (token & m1_medium_tag);
                flag = next_flag;
                if (static_cast<u32>(flags) == 0) return end_group();
                next_flag = clear_lowest(flags);
                next = load_ahead(next_flag);
            }
            if (m1_is_escaped(token)) [[unlikely]] {
                if (!decode_escaped(flag)) return false;
                token = load_u64(in + next_flag);
            } else {
                const m1_long_dist dist = m1_get_long_dist(token);
                // After a misprediction the next token is on the critical path: compute it first.
                const u64 following = computed_here(next >> 8 * dist.more);
                if (!decode_plain(token, dist, flag)) return false;
                token = following;
            }
            copy_literals<Literals>(flag);
            flag = next_flag;
            if (static_cast<u32>(flags) == 0) return end_group();
        }
    }

    /// Clears the lowest flag and returns the position of the next one, or of the sentinel.
    [[gnu::always_inline]] static usize clear_lowest(u64& flags)
    {
        flags &= flags - 1;
        return m1_next_match(flags);
    }

    /// Loads the word at the lowest address where the token of `next_flag` can start.
    [[gnu::always_inline]] u64 load_ahead(usize next_flag) const
    {
        return load_u64(in + (m1_short_bytes - 1) + next_flag);
    }

    [[gnu::always_inline]] bool end_group()
    {
        in += m1_end_flag;
        pos += m1_end_flag;
        return true;
    }

    template <u32 Literals>
    [[gnu::always_inline]] void copy_literals(usize flag)
    {
        assert(pos + flag + 1 + Literals <= limit + m1_group_writes);
        u8* const dest = begin + pos + flag + 1;
        const u8* const source = in + flag + 1;
        copy_16(dest, source);
        if constexpr (Literals > 16) copy_16(dest + 16, source + 16);
    }

    // Matches.  Each function returns false, with both cursors unchanged, if the distance is 0 or
    // reaches before the block; decode_escaped() also if the match ends past `limit`.

    [[gnu::always_inline]] bool decode_near(u64 token, usize flag)
    {
        const usize at = pos + flag;
        assert(at + m1_near_copy <= limit + m1_group_writes);
        const auto word = static_cast<usize>(token);
        const usize form = word & m1_long_tag;
        const usize offset = Bits::extract(word, m1_near_dist[form]);
        const usize code = Bits::extract(word, m1_near_len[form]);
        if (offset >= at) [[unlikely]]
            return false;
        if (offset >= 15) [[likely]]
            copy_16(begin + at, begin + (at - offset) - 1);
        else
            widen_pattern(begin + at, static_cast<u32>(offset) + 1);
        pos += code + (MinMatch - 1);
        in += (word & m1_medium_tag) + (m1_short_bytes - 1);
        return true;
    }

    [[gnu::always_inline]] bool decode_plain(u64 token, m1_long_dist dist, usize flag)
    {
        const usize at = pos + flag;
        assert(at + m1_plain_copy <= limit + m1_group_writes);
        if (dist.value - 1 >= at) [[unlikely]] // or the distance is 0
            return false;
        const usize len = static_cast<usize>(token >> 2 & m1_long_escape) + MinMatch;
        m1_copy_plain(begin + at, dist.value, len);
        pos += len - 1;
        in += dist.more + 1;
        return true;
    }

    /// Decodes a long token of any size.
    [[gnu::always_inline]] bool decode_escaped(usize flag)
    {
        const usize at = pos + flag;
        const u8* from = in + flag;
        const u32 code = *from++ >> 2;
        u64 len = u64{code} + MinMatch;
        if (code == m1_long_escape) {
            const m1_integer integer = m1_get_integer(from);
            len += integer.value;
            from += integer.bytes;
        }
        const m1_integer dist = m1_get_integer(from);
        if (dist.value == 0 || dist.value > at || at + len > limit) return false;
        copy_match(begin + at, dist.value, static_cast<usize>(len));
        pos += static_cast<usize>(len) - 1;
        in = from + dist.bytes - flag - 1;
        return true;
    }
};

} // namespace

const codec_entry m1_decoder{no_state, decode_best<m1_decoding>, release_nothing, no_memory_needed};
const codec_entry m1_portable_decoder{no_state, decode_portable<m1_decoding>, release_nothing,
                                      no_memory_needed};

} // namespace quarnex
