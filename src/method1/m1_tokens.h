// method1/m1_tokens.h - token writer of method 1
//
// Literals are not written one at a time: the writer keeps the end of the last match and copies the
// bytes up to the next one in whole words, at most 32 per control word.  O(1) time per match plus
// O(1) per 32 literals; no memory.
#pragma once

#include "coding/codec.h"
#include "common/copy.h"
#include "match/concepts.h"
#include "method1/m1_format.h"

#include <cassert>

namespace quarnex {

/// Writes literals and matches of MinMatch bytes or more as a stream of method 1.  Matches come in
/// the order of the block and don't overlap.
template <u32 MinMatch>
class m1_tokens {
  public:
    static constexpr u32 first_pos = 1;
    static constexpr u32 min_match = MinMatch;

    /// Starts a stream for a block of 1 byte or more.
    explicit m1_tokens(const codec_job& job)
        : text_(job.in_buf), begin_(job.out_buf), limit_(job.out_buf + job.in_len),
          control_(job.out_buf + 1), out_(job.out_buf + 1 + m1_control_bytes)
    {
        assert(job.in_len != 0);
        *begin_ = *text_;
    }

    bool full() const { return out_ >= limit_; }

    /// Does nothing: literals are written before the next match.
    void literal(u32 /*pos*/) {}

    void match(u32 pos, u32 len, u32 dist)
    {
        assert(pos >= done_ && len >= MinMatch && dist != 0 && dist <= pos);
        literals_until(pos);
        if (full()) return;
        put_match(len - MinMatch, dist);
        put_match_flag();
        done_ = pos + len;
    }

    /// Ends the stream.  Returns its length, or 0 unless it is shorter than the block.
    u32 finish()
    {
        if (full()) return 0;
        literals_until(static_cast<u32>(limit_ - begin_));
        if (full()) return 0;
        store_u16(out_, m1_end_token);
        out_ += m1_end_bytes;
        put_match_flag();
        if (full()) return 0;
        store_u32(control_, static_cast<u32>(flags_ << free_));
        return static_cast<u32>(out_ - begin_);
    }

  private:
    /// Stores the control word, which has all its flags, and reserves the next one.
    void next_control_word()
    {
        store_u32(control_, static_cast<u32>(flags_));
        control_ = out_;
        out_ += m1_control_bytes;
        flags_ = 0;
        free_ = m1_flags_per_word;
    }

    void put_match_flag()
    {
        flags_ = flags_ << 1 | 1;
        if (--free_ == 0) next_control_word();
    }

    /// Writes the literals from the end of the last match to `pos`.  Stops when the output is full.
    void literals_until(u32 pos)
    {
        if (pos <= done_) return; // the last match can pass the block's end
        const u8* from = text_ + done_;
        u32 run = pos - done_;
        done_ = pos;
        while (run >= free_) {
            copy_32(out_, from);
            out_ += free_;
            from += free_;
            run -= free_;
            flags_ <<= free_;
            next_control_word();
            if (full()) return;
        }
        copy_32(out_, from);
        out_ += run;
        flags_ <<= run;
        free_ -= run;
    }

    /// Writes the token of a match; `code` is its length less MinMatch.
    void put_match(u32 code, u32 dist)
    {
        const u32 offset = dist - 1;
        if ((code >> m1_medium_len_bits | offset >> m1_medium_dist_bits) != 0) {
            out_ = put_long(out_, code, dist);
            return;
        }
        // Short or medium is unpredictable: computed without a branch.
        const u32 medium = (code >> m1_short_len_bits | offset >> m1_short_dist_bits) != 0 ? 1 : 0;
        const u32 code_shift =
            1 + m1_short_dist_bits + medium * (1 + m1_medium_dist_bits - m1_short_dist_bits);
        store_u32(out_, medium * m1_medium_tag | offset << (1 + medium) | code << code_shift);
        out_ += m1_short_bytes + medium;
    }

    static u8* put_long(u8* out, u32 code, u32 dist)
    {
        *out++ = static_cast<u8>(std::min(code, m1_long_escape) << 2 | m1_long_tag);
        if (code >= m1_long_escape) out = m1_put_integer(out, code - m1_long_escape);
        return m1_put_integer(out, dist);
    }

    const u8* text_;
    u8* begin_;
    u8* limit_;                    // a stream that reaches this is not shorter than the block
    u8* control_;                  // the reserved control word, whose flags are in flags_
    u8* out_;                      // end of the items written
    u64 flags_ = 0;                // flags of the control word so far, the latest lowest
    u32 free_ = m1_flags_per_word; // flags that still fit
    u32 done_ = first_pos;         // the block is written up to here
};

/// Upper bound of the bytes written past the block's size: each write starts below it, and 32 bytes
/// of literals are the longest.
inline constexpr u32 m1_writes_past = m1_flags_per_word - 1;
static_assert(m1_writes_past <= out_slack && m1_token_max_bytes + 8 <= m1_flags_per_word);
/// Upper bound of the bytes read past the end of the block, by copies of literals.
inline constexpr u32 m1_reads_past = m1_flags_per_word;
static_assert(m1_reads_past <= in_slack);

static_assert(token_writer<m1_tokens<4>>);

} // namespace quarnex
