// method2/m2_tokens.h - token writer of method 2
//
// Literals are not written one at a time: the writer keeps the end of the last match and writes the
// bytes up to the next one six at a time, which is what one put() takes.  O(1) time per match plus
// O(1) per 6 literals; no memory.
#pragma once

#include "coding/bit_writer.h"
#include "coding/codec.h"
#include "match/concepts.h"
#include "method2/m2_format.h"

#include <algorithm>
#include <cassert>

namespace quarnex {

/// Literals written by one put().
inline constexpr u32 m2_literal_group = 6;
static_assert(m2_literal_group * m2_literal_bits <= bit_writer::max_bits);

/// Returns the literal tokens of the first six of eight bytes, the first highest, in 54 bits.
constexpr u64 m2_six_literals(u64 bytes)
{
    constexpr u64 pair = u64{1} << 36 | u64{1} << 18 | 1; // the lowest bits of three token pairs
    const u64 six = bytes >> 16;
    const u64 pairs = (six >> 32) << 36 | (six >> 16 & 0xFFFF) << 18 | (six & 0xFFFF);
    const u64 spread = (pairs & pair * 0xFF00) << 1 | (pairs & pair * 0xFF);
    const u64 flags = pair * 0x20100;
    return spread | flags;
}

/// The first token code that, with a distance, can exceed the bits of one put().
inline constexpr u32 m2_first_split_code =
    1 << ((bit_writer::max_bits - m2_class_bits - m2_max_extra_bits + 1) / 2);
static_assert(m2_gamma_bits(m2_first_split_code - 1) + m2_class_bits + m2_max_extra_bits <=
              bit_writer::max_bits);

/// Writes literals and matches of MinMatch bytes or more as a stream of method 2.  Matches come in
/// the order of the block and don't overlap.  Inlined into the search, to keep the state in
/// registers: stores and reloads of it would dominate the time of a token.
template <u32 MinMatch>
class m2_tokens {
    /// Whether literal runs are written: only at the levels with optimal parsing.
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
        assert(job.in_len != 0);
        *begin_ = *text_;
    }

    bool full() const { return bits_.whole_bytes_end() >= limit_; }

    /// Does nothing: literals are written before the next match.
    void literal(u32 /*pos*/) {}

    [[gnu::always_inline]] void match(u32 pos, u32 len, u32 dist)
    {
        assert(pos >= done_ && len >= MinMatch && dist != 0 && dist <= pos);
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

    /// Ends the stream.  Returns its length, or 0 if the output was full before the end token.
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

    /// Writes the literals from the end of the last match to `pos`.  Stops when the output is full.
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

    /// Writes them as a literal run, seven bytes at a time.
    void run_until(u32 pos)
    {
        constexpr u32 group = bit_writer::max_bits / 8;
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
    u8* limit_; // a stream that reaches this is not shorter than the block
    bit_writer bits_;
    u32 done_ = first_pos; // the block is written up to here
};

/// Upper bound of the bits of literals written before a full output is noticed: a group, or the
/// start of a literal run.
inline constexpr u32 m2_unchecked_bits =
    std::max(m2_literal_group * m2_literal_bits,
             m2_gamma_bits(m2_literal_run_code) + m2_max_gamma_bits + bit_writer::max_bits);
/// Upper bound of the bytes written past the block's size: the literals and the match that fill the
/// output, and the literals of finish().
inline constexpr u32 m2_writes_past =
    (2 * m2_unchecked_bits + m2_max_gamma_bits + m2_class_bits + m2_max_extra_bits + 7) / 8;
static_assert(m2_writes_past + bit_writer_overrun <= out_slack);
/// Upper bound of the bytes read past the end of the block, by the load of its last literals.
inline constexpr u32 m2_reads_past = 7;
static_assert(m2_reads_past <= in_slack);

static_assert(token_writer<m2_tokens<4>>);

} // namespace quarnex
