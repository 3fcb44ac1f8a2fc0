// method4/m4_tokens.h - the token writer of method 4
#pragma once

#include "coding/alphabet_tokens.h"
#include "coding/codec.h"
#include "match/concepts.h"
#include "method4/m4_coder.h"

namespace quarnex {

/// The entropy encoder: symbols by their models, extra bits with equal probabilities.
class m4_symbol_writer {
  public:
    /// Starts a stream for a block of 1 byte or more and writes the raw byte.
    m4_symbol_writer(const codec_job& job, m4_enc_state& models)
        : models_(models), mask_(m4_context_mask(job.parameters.lit_ctx_bits)), begin_(job.out_buf),
          limit_(job.out_buf + job.in_len),
          coder_(start_range_encoder(job.out_buf + alphabet_raw_bytes))
    {
        *begin_ = *job.in_buf;
        set_context(*begin_);
    }

    bool full() const { return coder_.out >= limit_; }

    void put_main(u32 symbol) { put<m4_main_step>(models_.main[context_], symbol); }
    void put_length(u32 slot) { put<m4_slot_step>(models_.length, slot); }
    void put_distance(u32 slot) { put<m4_slot_step>(models_.distance, slot); }
    void put_extra(u32 bits, u32 count) { m4_encode_direct(coder_, bits, count); }
    void set_context(u8 byte) { context_ = byte & mask_; }

    u32 finish()
    {
        flush(coder_);
        return static_cast<u32>(coder_.out - begin_);
    }

  private:
    template <u32 Step, class Model>
    void put(Model& model, u32 symbol)
    {
        m4_encode_freq(coder_, model.cum[symbol], model.cum[symbol + 1]);
        m4_model_step<Step>(model, symbol);
    }

    m4_enc_state& models_;
    u32 mask_;
    u32 context_;
    u8* begin_;
    u8* limit_; // a stream that reaches it is not shorter than the block
    range_encoder coder_;
};

/// Writes literals and matches of at least MinMatch bytes as a stream of method 4.
template <u32 MinMatch>
using m4_tokens = alphabet_tokens<MinMatch, m4_symbol_writer>;

/// A token starts before the stream is as long as the block, and the flush may follow it.  For a
/// block of one byte, the coder's first byte and the flush come after the raw byte.
static_assert(alphabet_raw_bytes + 1 + m4_token_max_bytes + range_flush_bytes <= out_slack);

static_assert(token_writer<m4_tokens<4>>);

} // namespace quarnex
