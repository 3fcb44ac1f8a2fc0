// method1/m1_decoder.cpp - the decoder of method 1
//
// One pass of the loop takes a run of literals and the match behind it.  The run's length is the
// number of leading zero flags, and is copied as one or two words of 16 bytes whatever its length.
//
// The slack of both buffers is larger than what a pass can read or write unasked, so one test of
// both cursors a pass keeps everything inside; only a long match is measured against the room that
// is left.  A damaged stream ends by that test or at the first distance that reaches before the
// block.
#include "common/copy.h"
#include "method1/m1_codec.h"
#include "method1/m1_format.h"

namespace quarnex {
namespace {

/// The longest short or medium match, which is copied as two words of 8 bytes.
inline constexpr u32 m1_near_max_len = (1U << m1_medium_len_bits) - 1 + m1_min_match(0);
static_assert(m1_near_max_len <= 16);

/// Most that one pass reads: a control word, its literals, a token with a word's read-ahead.
inline constexpr u32 m1_pass_reads = m1_control_bytes + 32 + m1_token_max_bytes + 8;
static_assert(m1_pass_reads <= payload_slack);
/// Most that one pass writes before it looks at the room: its literals and a near match or the
/// unasked part of a long one.
inline constexpr u32 m1_pass_writes = 32 + m1_near_max_len + copy_match_overrun + 1;
static_assert(m1_pass_writes <= out_slack);

/// Flags wait in the top half of 64 bits, the next one topmost, with a mark behind the last.
inline constexpr u64 m1_top_flag = u64{1} << 63;
inline constexpr u64 m1_flag_mark = u64{1} << 31;

/// Copies a match of at most m1_near_max_len bytes.  Writes 16.
inline void copy_near(u8* to, u32 dist)
{
    if (dist < 8) {
        widen_pattern(to, dist);
        return;
    }
    copy_8(to, to - dist);
    copy_8(to + 8, to + 8 - dist);
}

template <u32 MinMatch>
i32 m1_decode(const block_job& job)
{
    const u8* in = job.in_buf;
    const u8* const in_end = in + job.in_len;
    u8* out = job.out_buf;
    u8* const out_end = out + job.out_len;
    if (job.in_len == 0 || job.out_len == 0) return 0;

    *out++ = *in++;
    u64 flags = m1_top_flag; // the mark alone: a control word comes first
    while (in < in_end && out < out_end) {
        const auto run = static_cast<u32>(std::countl_zero(flags));
        copy_16(out, in);
        if (run > 16) copy_16(out + 16, in + 16);
        out += run;
        in += run;
        flags <<= run;
        if (flags == m1_top_flag) {
            flags = u64{load_u32(in)} << 32 | m1_flag_mark;
            in += m1_control_bytes;
            continue;
        }
        flags <<= 1;

        const u32 token = load_u32(in);
        if ((token & m1_long_tag) != m1_long_tag) {
            const bool medium = (token & m1_medium_tag) != 0;
            const u32 offset = medium ? token >> 2 & ((1U << m1_medium_dist_bits) - 1)
                                      : token >> 1 & ((1U << m1_short_dist_bits) - 1);
            const u32 code =
                medium ? token >> (2 + m1_medium_dist_bits) & ((1U << m1_medium_len_bits) - 1)
                       : token >> (1 + m1_short_dist_bits) & ((1U << m1_short_len_bits) - 1);
            in += medium ? m1_medium_bytes : m1_short_bytes;
            if (offset >= static_cast<usize>(out - job.out_buf)) break;
            copy_near(out, offset + 1);
            out += code + MinMatch;
            continue;
        }

        u64 len = u64{token >> 2 & m1_long_escape} + MinMatch;
        in += 1;
        if (len == m1_long_escape + MinMatch) {
            const m1_integer more = m1_get_integer(in);
            len += more.value;
            in += more.bytes;
        }
        const m1_integer dist = m1_get_integer(in);
        in += dist.bytes;
        if (dist.value == 0 || dist.value > static_cast<usize>(out - job.out_buf)) break;
        const u64 room = out < out_end ? static_cast<u64>(out_end - out) : 0;
        len = std::min(len, room); // the last match may pass the block's end
        copy_match(out, dist.value, static_cast<usize>(len));
        out += len;
    }
    return static_cast<i32>(std::min(out, out_end) - job.out_buf);
}

i32 m1_run_decoder(const block_job& job, void* /*state*/)
{
    return m1_min_match(job.parameters.level) == 4 ? m1_decode<4>(job) : m1_decode<3>(job);
}

} // namespace

const codec_entry m1_decoder{no_state, m1_run_decoder, release_nothing};

} // namespace quarnex
