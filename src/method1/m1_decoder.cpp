// method1/m1_decoder.cpp - the decoder of method 1
//
// One pass of the outer loop takes a control word and the items of its 32 flags; one pass of the
// inner loop takes a match and copies the literals behind it, 32 bytes whatever their number.
// Literals cost no step of their own: a literal is one byte in the stream, one byte in the block
// and one flag, so inside a group the item of flag f lies at in + f and goes to out + f, with `in`
// and `out` moved by matches alone.
//
// A token's size decides where the next one lies.  To keep this chain short, the eight bytes at the
// nearest place where the next token can lie are loaded before the size is known, and then shifted.
//
// The slack of both buffers is larger than what a group can read or write unasked, so both cursors
// are tested once a group; only matches with a length of their own (above 62 + MinMatch) are
// measured against the room that is left.  A damaged stream ends there, or at the first distance
// that reaches before the block.
#include "common/copy.h"
#include "method1/m1_codec.h"
#include "method1/m1_format.h"

#include <algorithm>

namespace quarnex {
namespace {

/// The place of the mark behind the flags of a group.
constexpr u32 m1_end_flag = m1_flags_per_word;
/// A match is plain if its token has the length in its first byte.
constexpr u32 m1_plain_max_len = m1_long_escape - 1 + m1_min_match(0);
/// What the copy of a plain match writes at the most.
constexpr u32 m1_plain_copy = 5 * 16;
static_assert(m1_plain_copy >= m1_plain_max_len);
/// The longest near match, which the fast path copies as one word.
static_assert((1U << m1_medium_len_bits) - 1 + m1_min_match(0) <= 16);

constexpr u32 m1_literals_copy = 32;
static_assert(m1_literals_copy >= m1_flags_per_word);
constexpr u32 m1_group_reads =
    m1_control_bytes + m1_flags_per_word * m1_token_max_bytes + m1_literals_copy + 16;
static_assert(m1_group_reads <= payload_slack);
constexpr u32 m1_group_writes =
    m1_flags_per_word * m1_plain_max_len + m1_plain_copy + m1_literals_copy;
static_assert(m1_group_writes <= out_slack && copy_match_overrun <= m1_literals_copy);

/// The fields of near tokens by their two lowest bits: short, medium, short.  A long token has none
/// here; it reads as a distance of 1, which the fast path doesn't take.
struct m1_near_fields {
    u32 dist_mask[4];
    u32 code_mask[4];
    u8 dist_shift[4];
    u8 code_shift[4];
};
constexpr u32 low_bits(u32 count)
{
    return (1U << count) - 1;
}
constexpr m1_near_fields m1_near{
    {low_bits(m1_short_dist_bits), low_bits(m1_medium_dist_bits), low_bits(m1_short_dist_bits), 0},
    {low_bits(m1_short_len_bits), low_bits(m1_medium_len_bits), low_bits(m1_short_len_bits), 0},
    {1, 2, 1, 0},
    {1 + m1_short_dist_bits, 2 + m1_medium_dist_bits, 1 + m1_short_dist_bits, 0},
};

/// A plain long token: its distance, less 1, and the number of its bytes behind the first two.
struct m1_long_token {
    u64 offset;
    u64 more;
};

[[gnu::always_inline]] inline m1_long_token m1_read_long(u64 token)
{
    // The leading ones of the distance's first byte; the byte is not all ones.
    const auto more = static_cast<u32>(__builtin_clz(~static_cast<u32>(token) << 16));
    const u64 tail = token >> 16 & ((u64{1} << 8 * more) - 1);
    const u64 top = (token >> 8 & (0x7FU >> more)) << 8 * more;
    return {(top | tail) - 1, more};
}

/// Whether a long token has a length of its own or a distance of five bytes.
[[gnu::always_inline]] inline bool m1_is_escaped(u64 token)
{
    return (token & 0xFC) == 0xFC || (token & 0xF000) == 0xF000;
}

/// Copies a plain match.  Writes up to m1_plain_copy.
[[gnu::always_inline]] inline void m1_copy_plain(u8* to, u64 dist, u64 len)
{
    if (dist < 16) return copy_match(to, static_cast<u32>(dist), len);
    const u8* const from = to - dist;
    copy_16(to, from);
    copy_16(to + 16, from + 16);
    if (len <= 32) return;
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

/// The lowest flag that is set; one is.  (std::countr_zero() would test for none.)
[[gnu::always_inline]] inline u64 m1_next_match(u64 flags)
{
    return static_cast<u32>(__builtin_ctzll(flags));
}

/// A stream while it is decoded.
template <u32 MinMatch>
struct m1_decoding {
    const u8* in;
    u8* out;
    u8* const begin;
    u8* const end;

    /// Takes the items of a control word.  False at the end token and at damage, with both cursors
    /// there.
    [[gnu::always_inline]] bool take_group()
    {
        u64 flags = m1_reversed(load_u32(in)) | u64{1} << m1_end_flag;
        in += m1_control_bytes;
        copy_32(out, in);
        u64 flag = m1_next_match(flags);
        u64 token = load_u64(in + flag);
        while (static_cast<u32>(flags) != 0) {
            flags &= flags - 1;
            const u64 next_flag = m1_next_match(flags);
            const u64 next = load_u64(in + 1 + next_flag);
            u8* const at = out + flag;
            const u64 form = token & m1_long_tag;
            const u64 offset = token >> m1_near.dist_shift[form] & m1_near.dist_mask[form];
            if (offset >= 15 && offset < written(at)) [[likely]] {
                const u64 medium = token & m1_medium_tag;
                const u64 code = token >> m1_near.code_shift[form] & m1_near.code_mask[form];
                copy_16(at, at - offset - 1);
                out += code + (MinMatch - 1);
                in += medium + (m1_short_bytes - 1);
                copy_32(out + flag + 1, in + flag + 1);
                token = next >> 8 * medium;
            } else {
                if (!take_rare(token, flag)) return false;
                copy_32(out + flag + 1, in + flag + 1);
                token = load_u64(in + next_flag);
            }
            flag = next_flag;
        }
        in += m1_end_flag;
        out += m1_end_flag;
        return true;
    }

  private:
    u64 written(const u8* at) const { return static_cast<u64>(at - begin); }

    /// Ends the stream at the item of `flag`.
    bool stop(u64 flag)
    {
        in += flag;
        out += flag;
        return false;
    }

    /// Takes a match that the fast path leaves: a long token, or a near one at a distance below 16.
    [[gnu::always_inline]] bool take_rare(u64 token, u64 flag)
    {
        u8* const at = out + flag;
        const u64 form = token & m1_long_tag;
        if (form != m1_long_tag) {
            const u64 offset = token >> m1_near.dist_shift[form] & m1_near.dist_mask[form];
            if (offset >= written(at)) return stop(flag);
            const u64 code = token >> m1_near.code_shift[form] & m1_near.code_mask[form];
            copy_match(at, static_cast<u32>(offset) + 1, code + MinMatch);
            out += code + (MinMatch - 1);
            in += (token & m1_medium_tag) + (m1_short_bytes - 1);
            return true;
        }
        if (m1_is_escaped(token)) return take_escaped(flag);
        const m1_long_token plain = m1_read_long(token);
        if (plain.offset >= written(at)) return stop(flag);
        const u64 len = (token >> 2 & m1_long_escape) + MinMatch;
        m1_copy_plain(at, plain.offset + 1, len);
        out += len - 1;
        in += plain.more + 1;
        return true;
    }

    /// Takes a long token of any size.
    bool take_escaped(u64 flag)
    {
        u8* const at = out + flag;
        const u8* from = in + flag;
        const u32 code = *from++ >> 2;
        u64 len = u64{code} + MinMatch;
        if (code == m1_long_escape) {
            const m1_integer integer = m1_get_integer(from);
            len += integer.value;
            from += integer.bytes;
        }
        const m1_integer dist = m1_get_integer(from);
        if (dist.value == 0 || dist.value > written(at) || at >= end) return stop(flag);
        len = std::min(len, static_cast<u64>(end - at)); // the last match may pass the block's end
        copy_match(at, dist.value, static_cast<usize>(len));
        out = at + len - flag - 1;
        in = from + dist.bytes - flag - 1;
        return true;
    }
};

template <u32 MinMatch>
i32 m1_decode(const block_job& job)
{
    if (job.in_len == 0 || job.out_len == 0) return 0;
    const u8* const in_end = job.in_buf + job.in_len;
    m1_decoding<MinMatch> stream{job.in_buf, job.out_buf, job.out_buf, job.out_buf + job.out_len};
    *stream.out++ = *stream.in++;
    while (stream.in < in_end && stream.out < stream.end) {
        u8* const group = stream.out;
        const bool more = stream.take_group();
        // A group that is cut off doesn't count: its last items are made of zeros.
        if (stream.in > in_end) stream.out = group;
        if (!more || stream.in > in_end) break;
    }
    return static_cast<i32>(std::min(stream.out, stream.end) - stream.begin);
}

i32 m1_run_decoder(const block_job& job, void* /*state*/)
{
    return m1_min_match(job.parameters.level) == 4 ? m1_decode<4>(job) : m1_decode<3>(job);
}

} // namespace

const codec_entry m1_decoder{no_state, m1_run_decoder, release_nothing};

} // namespace quarnex
