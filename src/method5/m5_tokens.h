// method5/m5_tokens.h - the token writer of method 5
#pragma once

#include "coding/codec.h"
#include "match/concepts.h"
#include "method5/m5_learn.h"

#include <cassert>

namespace quarnex {

/// The state of an encoder for one block.
struct m5_encoder_state {
    m5_model model;
    m5_step steps[m5_batch_steps + m5_token_max_steps + m5_spare_steps];
};

/// Writes literals and matches of at least MinMatch bytes as a stream of method 5.
///
/// The models are up to date after each token, the stream only after each batch.
template <u32 MinMatch>
class m5_tokens {
  public:
    static constexpr u32 first_pos = m5_raw_bytes;
    static constexpr u32 min_match = MinMatch;

    /// Starts a stream for a block and writes its raw bytes.
    m5_tokens(const codec_job& job, m5_encoder_state& state)
        : model_(state.model), text_(job.in_buf), begin_(job.out_buf),
          limit_(job.out_buf + job.in_len), steps_(state.steps), next_(state.steps),
          coder_(start_range_encoder(job.out_buf + m5_raw_bytes))
    {
        store_u16(begin_, load_u16(text_));
    }

    bool full() const { return coder_.out >= limit_; }

    void literal(u32 pos)
    {
        next_ = m5_learn_literal(next_, model_, text_ + pos);
        end_token();
    }

    void match(u32 pos, u32 len, u32 dist)
    {
        assert(len >= MinMatch && dist >= 1);
        const u32 length_value = len - MinMatch + m5_min_length_value;
        next_ = m5_learn_match(next_, model_, text_ + pos, length_value, dist - 1);
        end_token();
    }

    /// Ends the stream and returns its length.
    u32 finish()
    {
        end_batch();
        flush(coder_);
        return static_cast<u32>(coder_.out - begin_);
    }

  private:
    void end_token()
    {
        if (next_ - steps_ >= i32{m5_batch_steps}) [[unlikely]]
            end_batch();
    }

    /// Writes the tokens of the batch, unless the stream is full.
    void end_batch()
    {
        if (!full()) coder_ = m5_encode_steps(coder_, begin_, steps_, next_);
        next_ = steps_;
    }

    m5_model& model_;
    const u8* text_;
    u8* begin_;
    u8* limit_; // a stream that reaches it is not shorter than the block
    m5_step* steps_;
    m5_step* next_; // in steps_: end of the batch
    range_encoder coder_;
};

/// The last batch that is written starts before the stream is as long as the block; the flush
/// follows it.
static_assert(m5_step_max_bytes * (m5_batch_steps + m5_token_max_steps) + range_flush_bytes <=
              out_slack);
/// For a block of one byte, the coder's first byte and the flush come after two raw bytes.
static_assert(m5_raw_bytes + 1 + range_flush_bytes <= out_slack);

static_assert(token_writer<m5_tokens<4>>);

} // namespace quarnex
