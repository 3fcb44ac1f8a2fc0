// method2/m2_tokens.h - the token writer of method 2
//
// Literals are not written one at a time: the writer remembers where the last match ended and
// writes the bytes up to the next one six at a time, as many as a put() takes.
#pragma once

#include "coding/bit_writer.h"
#include "coding/codec.h"
#include "match/concepts.h"
#include "method2/m2_format.h"

namespace quarnex {

/// Literals that are written at once.
inline constexpr u32 m2_literal_group = 6;
static_assert(m2_literal_group * m2_literal_bits <= bit_writer::most_bits);

/// The literal tokens of the first six of eight bytes, the first highest, in 54 bits.
constexpr u64 m2_six_literals(u64 bytes)
{
    constexpr u64 pair = u64{1} << 36 | u64{1} << 18 | 1; // where three pairs of tokens end
    const u64 six = bytes >> 16;
    const u64 pairs = (six >> 32) << 36 | (six >> 16 & 0xFFFF) << 18 | (six & 0xFFFF);
    const u64 spread = (pairs & pair * 0xFF00) << 1 | (pairs & pair * 0xFF);
    const u64 flags = pair * 0x20100;
    return spread | flags;
}

/// From here on a token code and a distance may be too many bits for one put().
inline constexpr u32 m2_first_split_code =
    1 << ((bit_writer::most_bits - m2_class_bits - m2_max_extra_bits + 1) / 2);
static_assert(m2_gamma_bits(m2_first_split_code - 1) + m2_class_bits + m2_max_extra_bits <=
              bit_writer::most_bits);

/// Writes literals and matches of at least MinMatch bytes as a stream of method 2.  All is inlined
/// into the search: the time of a token is mostly that of its state if that lies in memory.
template <u32 MinMatch>
class m2_tokens {
    /// Whether runs of literals are written as such: only what the priced parses find.
    static constexpr bool writes_runs = MinMatch == 3;

  public:
    static constexpr u32 first_pos = 1;
    static constexpr u32 min_match = MinMatch;
    static constexpr u32 max_dist = m2_max_dist;

    /// Starts a stream for a block of 1 byte or more.
    explicit m2_tokens(const codec_job& job)
        : text_(job.in_buf), begin_(job.out_buf), limit_(job.out_buf + job.in_len),
          bits_(job.out_buf + 1)
    {
        *begin_ = *text_;
    }

    bool full() const { return bits_.whole_bytes_end() >= limit_; }

    /// Literals are written in front of the next match.
    void literal(u32 /*pos*/) {}

    [[gnu::always_inline]] void match(u32 pos, u32 len, u32 dist)
    {
        literals_until(pos);
        const u32 code = m2_match_code<MinMatch>(len);
        const u32 c = m2_distance_class(dist);
        const u32 extra_bits = m2_extra_bits[c];
        const u64 distance = u64{c} << extra_bits | (dist - 1 - m2_dist_base[c]);
        const u32 distance_bits = m2_class_bits + extra_bits;
        if (code < m2_first_split_code) [[likely]] {
            bits_.put(u64{code} << distance_bits | distance, m2_gamma_bits(code) + distance_bits);
        } else {
            put_gamma(code);
            bits_.put(distance, distance_bits);
        }
        done_ = pos + len;
    }

    /// Ends the stream.  Returns its length, or 0 if it is not shorter than the block.
    u32 finish()
    {
        literals_until(static_cast<u32>(limit_ - begin_));
        if (full()) return 0;
        put_gamma(m2_end_code);
        return static_cast<u32>(bits_.end() - begin_);
    }

  private:
    /// Writes gamma(v).
    [[gnu::always_inline]] void put_gamma(u32 v)
    {
        const u32 zeros = m2_gamma_zeros(v);
        bits_.put(0, zeros);
        bits_.put(v, zeros + 1);
    }

    /// Writes the bytes that no match covers, up to `pos`.  Stops when the output is full.
    [[gnu::always_inline]] void literals_until(u32 pos)
    {
        if constexpr (writes_runs) {
            if (pos >= done_ + m2_first_literal_run) return run_until(pos);
        }
        for (; done_ + m2_literal_group <= pos; done_ += m2_literal_group) {
            bits_.put(m2_six_literals(load_u64_high_first(text_ + done_)),
                      m2_literal_group * m2_literal_bits);
            if (full()) return;
        }
        if (done_ >= pos) return; // the last match can pass the block's end
        const u32 rest = pos - done_;
        bits_.put(m2_six_literals(load_u64_high_first(text_ + done_)) >>
                      (m2_literal_group - rest) * m2_literal_bits,
                  rest * m2_literal_bits);
        done_ = pos;
    }

    /// The same as a literal run, seven bytes at a time.
    void run_until(u32 pos)
    {
        constexpr u32 group = bit_writer::most_bits / 8;
        bits_.put(m2_literal_run_code, m2_gamma_bits(m2_literal_run_code));
        put_gamma(pos - done_ - m2_literal_run_base);
        for (; done_ + group <= pos; done_ += group) {
            bits_.put(load_u64_high_first(text_ + done_) >> 8, 8 * group);
            if (full()) return;
        }
        for (; done_ < pos; ++done_) bits_.put(text_[done_], 8);
    }

    const u8* text_;
    u8* begin_;
    u8* limit_; // a stream that gets here is not shorter than the block
    bit_writer bits_;
    u32 done_ = first_pos; // the block is written up to here
};

/// Bytes of the literals, the match, and the literals at the end that are written once the output
/// is full.
inline constexpr u32 m2_writes_past =
    (2 * m2_literal_group * m2_literal_bits + 63 + m2_class_bits + m2_max_extra_bits + 7) / 8;
static_assert(m2_writes_past + bit_writer_overrun <= out_slack);
/// Bytes behind the block that are loaded with its last literal.
inline constexpr u32 m2_reads_past = 7;
static_assert(m2_reads_past <= in_slack);

static_assert(token_writer<m2_tokens<4>>);

} // namespace quarnex
