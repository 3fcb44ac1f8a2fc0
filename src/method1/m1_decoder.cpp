// method1/m1_decoder.cpp - the decoder of method 1
//
// One pass of the outer loop takes a control word and the items of its 32 flags; one pass of the
// inner loop takes a match and copies the literals behind it, 16 bytes whatever their number (32 in
// the few groups that have a longer run).  Literals cost no step of their own: a literal is one
// byte in the stream, one byte in the block and one flag, so inside a group the item of flag f lies
// at in + f and goes to pos + f, with `in` and `pos` moved by matches alone.
//
// A token's size decides where the next one lies.  To keep this chain short, the eight bytes at the
// nearest place where the next token can lie are loaded before the size is known, and then shifted.
// Near and long tokens part by their two lowest bits, before anything else is known of them: where
// they mix, this branch is the one that is guessed wrong, and it must be found out early.
//
// The slack of both buffers is larger than what a group can read or write unasked, so both cursors
// are tested once a group; only escaped tokens (a length above 62 + MinMatch or a distance of five
// bytes) are measured against the room that is left.  A damaged stream ends there, or at the first
// distance that reaches before the block.
#include "coding/decoder_forms.h"
#include "common/copy.h"
#include "method1/m1_codec.h"
#include "method1/m1_format.h"

#include <algorithm>

namespace quarnex {
namespace {

/// The place of the mark behind the flags of a group.
constexpr u32 m1_end_flag = m1_flags_per_word;
/// A match is plain if its token has the length in its first byte.
constexpr u32 m1_plain_max_len = m1_long_escape - 1 + static_min_match(0);
/// What the copy of a plain match from afar writes, whatever its length.
constexpr u32 m1_far_copy = 4 * 16 + 8;
static_assert(m1_far_copy >= m1_plain_max_len);
/// What the copy of any plain match writes at the most.
constexpr u32 m1_plain_copy = m1_plain_max_len + copy_match_overrun;
static_assert(m1_plain_copy >= m1_far_copy);
/// A near match is copied as one word, which none exceeds.
static_assert((1U << m1_medium_len_bits) - 1 + static_min_match(0) <= 16);

constexpr u32 m1_short_run = 16;               // literals behind a match, in most groups
constexpr u32 m1_long_run = m1_flags_per_word; // ... and in all of them
constexpr u32 m1_ahead_bytes = 16;             // more than the word that is loaded ahead reaches
constexpr u32 m1_group_reads =
    m1_control_bytes + m1_flags_per_word * m1_token_max_bytes + m1_long_run + m1_ahead_bytes;
static_assert(m1_group_reads <= payload_slack);
constexpr u32 m1_group_writes = m1_flags_per_word * m1_plain_max_len + m1_plain_copy + m1_long_run;
static_assert(m1_group_writes <= out_slack && copy_match_overrun <= m1_long_run);

// The fields of near tokens by their two lowest bits: short, medium, short.
constexpr bit_field m1_short_dist(1, m1_short_dist_bits);
constexpr bit_field m1_short_len(1 + m1_short_dist_bits, m1_short_len_bits);
constexpr bit_field m1_medium_dist(2, m1_medium_dist_bits);
constexpr bit_field m1_medium_len(2 + m1_medium_dist_bits, m1_medium_len_bits);
constexpr bit_field m1_near_dist[3]{m1_short_dist, m1_medium_dist, m1_short_dist};
constexpr bit_field m1_near_len[3]{m1_short_len, m1_medium_len, m1_short_len};

/// Copies a plain match of a long token.  From afar it writes m1_far_copy: a test of the length
/// costs more than the words that it saves.
[[gnu::always_inline]] inline void m1_copy_plain(u8* to, usize dist, usize len)
{
    if (dist < 16) return copy_match(to, static_cast<u32>(dist), len);
    const u8* const from = to - dist;
    copy_16(to, from);
    copy_16(to + 16, from + 16);
    copy_16(to + 32, from + 32);
    copy_16(to + 48, from + 48);
    copy_8(to + 64, from + 64);
}

/// A control word with its flags in the order of their use from the lowest bit up.
constexpr u32 m1_reversed(u32 control)
{
    control = (control >> 1 & 0x55555555) | (control & 0x55555555) << 1;
    control = (control >> 2 & 0x33333333) | (control & 0x33333333) << 2;
    control = (control >> 4 & 0x0F0F0F0F) | (control & 0x0F0F0F0F) << 4;
    return byte_swap(control);
}
static_assert(m1_reversed(0x80000001) == 0x80000001 && m1_reversed(0xC0000000) == 3);

/// The lowest flag that is set; one is, at least the mark.
[[gnu::always_inline]] inline usize m1_next_match(u64 flags)
{
    // Where words have 32 bits the mark is in another one: no flag in the first stands for it.
    if constexpr (sizeof(usize) == sizeof(u32))
        return static_cast<u32>(std::countr_zero(static_cast<u32>(flags)));
    return static_cast<u32>(__builtin_ctzll(flags)); // std::countr_zero() would test for none
}

/// The first flag that is set of a control word as it stands in the stream; one is.  Its token
/// needs not wait for the flags in their order of use.
[[gnu::always_inline]] inline usize m1_first_match(u32 control)
{
    return static_cast<u32>(__builtin_clz(control));
}

/// Whether more than m1_short_run literals follow a match of a group, `first` being the first.
constexpr bool m1_has_long_run(u64 flags, usize first)
{
    u64 close = flags | flags >> 1; // in the end: a match here or at one of the next 16 flags
    close |= close >> 2;
    close |= close >> 4;
    close |= close >> 8;
    close |= flags >> m1_short_run;
    return static_cast<u32>(~close) >> first != 0;
}

/// A stream while it is decoded.
template <u32 MinMatch, class Bits>
struct m1_decoding {
    const u8* in;
    u8* const begin;
    const usize size; // of the block
    usize pos = 0;    // in the block

    /// Decodes the block of a job.  Returns the bytes in it, fewer than its length at damage.
    [[gnu::always_inline]] static codec_result decode(const codec_job& job)
    {
        if (job.in_len == 0 || job.out_len == 0) return {};
        const u8* const in_end = job.in_buf + job.in_len;
        m1_decoding stream{job.in_buf, job.out_buf, job.out_len};
        stream.begin[stream.pos++] = *stream.in++;
        while (stream.in < in_end && stream.pos < stream.size) {
            const usize group = stream.pos;
            const bool more = stream.take_group();
            // A group that is cut off doesn't count: its last items are made of zeros.
            if (stream.in > in_end) stream.pos = group;
            if (!more) break;
        }
        return {.length = static_cast<u32>(std::min(stream.pos, stream.size))};
    }

    /// Takes the items of a control word.  False at the end token and at damage, with both cursors
    /// there.
    [[gnu::always_inline]] bool take_group()
    {
        const u32 control = load_u32(in);
        in += m1_control_bytes;
        copy_32(begin + pos, in);
        if (control == 0) return end_group();
        const usize first = m1_first_match(control);
        const u64 flags = m1_reversed(control) | u64{1} << m1_end_flag;
        if (m1_has_long_run(flags, first)) return take_items<m1_long_run>(flags, first);
        return take_items<m1_short_run>(flags, first);
    }

  private:
    /// Takes the matches of a group, the first at `flag`, and copies `Literals` bytes behind each.
    template <u32 Literals>
    [[gnu::always_inline]] bool take_items(u64 flags, usize flag)
    {
        u64 token = load_u64(in + flag);
        for (;;) {
            usize next_flag = drop_match(flags);
            u64 next = load_ahead(next_flag);
            while (!m1_is_long(token)) {
                if (!take_near(token, flag)) return stop(flag);
                copy_literals<Literals>(flag);
                token = next >> 8 * (token & m1_medium_tag);
                flag = next_flag;
                if (static_cast<u32>(flags) == 0) return end_group();
                next_flag = drop_match(flags);
                next = load_ahead(next_flag);
            }
            if (m1_is_escaped(token)) [[unlikely]] {
                if (!take_escaped(flag)) return stop(flag);
                token = load_u64(in + next_flag);
            } else {
                const m1_long_dist dist = m1_get_long_dist(token);
                // Behind a wrong guess at a long token, the next token is what all waits for.
                const u64 following = computed_here(next >> 8 * dist.more);
                if (!take_plain(token, dist, flag)) return stop(flag);
                token = following;
            }
            copy_literals<Literals>(flag);
            flag = next_flag;
            if (static_cast<u32>(flags) == 0) return end_group();
        }
    }

    /// Clears the lowest flag and returns the place of the next one, or of the mark.
    [[gnu::always_inline]] static usize drop_match(u64& flags)
    {
        flags &= flags - 1;
        return m1_next_match(flags);
    }

    /// The word at the nearest place where the token of `next_flag` can lie.
    [[gnu::always_inline]] u64 load_ahead(usize next_flag) const
    {
        return load_u64(in + (m1_short_bytes - 1) + next_flag);
    }

    /// Ends the stream at the item of `flag`.
    [[gnu::always_inline]] bool stop(usize flag)
    {
        in += flag;
        pos += flag;
        return false;
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
        u8* const to = begin + pos + flag + 1;
        const u8* const from = in + flag + 1;
        copy_16(to, from);
        if constexpr (Literals > 16) copy_16(to + 16, from + 16);
    }

    // The matches.  Each is false, with nothing moved, if the distance is 0 or reaches before the
    // block; an escaped one also if it starts behind the block.

    [[gnu::always_inline]] bool take_near(u64 token, usize flag)
    {
        const usize at = pos + flag;
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

    [[gnu::always_inline]] bool take_plain(u64 token, m1_long_dist dist, usize flag)
    {
        const usize at = pos + flag;
        if (dist.value - 1 >= at) [[unlikely]] // or the distance is 0
            return false;
        const usize len = static_cast<usize>(token >> 2 & m1_long_escape) + MinMatch;
        m1_copy_plain(begin + at, dist.value, len);
        pos += len - 1;
        in += dist.more + 1;
        return true;
    }

    /// Takes a long token of any size.
    [[gnu::always_inline]] bool take_escaped(usize flag)
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
        if (dist.value == 0 || dist.value > at || at >= size) return false;
        // The last match may pass the block's end.
        const auto inside = static_cast<usize>(std::min<u64>(len, size - at));
        copy_match(begin + at, dist.value, inside);
        pos += inside - 1;
        in = from + dist.bytes - flag - 1;
        return true;
    }
};

} // namespace

const codec_entry m1_decoder{no_state, decode_best<m1_decoding>, release_nothing, no_memory_needed};
const codec_entry m1_portable_decoder{no_state, decode_portable<m1_decoding>, release_nothing,
                                      no_memory_needed};

} // namespace quarnex
