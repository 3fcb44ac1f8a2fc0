// method3/m3_tokens.h - the token writer of method 3
#pragma once

#include "coding/alphabet_tokens.h"
#include "coding/bit_writer.h"
#include "coding/codec.h"
#include "match/concepts.h"
#include "method3/m3_model.h"

namespace quarnex {

using m3_encoder_models = m3_models<m3_encoder_tables>;

/// The entropy encoder: symbols as their codes, extra bits verbatim.
class m3_symbol_writer {
  public:
    /// Starts a stream for a block of 1 byte or more and writes the raw byte.
    m3_symbol_writer(const codec_job& job, m3_encoder_models& models)
        : models_(models), begin_(job.out_buf), limit_(job.out_buf + job.in_len),
          bits_(job.out_buf + alphabet_raw_bytes)
    {
        *begin_ = *job.in_buf;
    }

    bool full() const { return bits_.whole_bytes_end() >= limit_; }

    void put_main(u32 symbol) { put(models_.main, symbol); }
    void put_length(u32 slot) { put(models_.length, slot); }
    void put_distance(u32 slot) { put(models_.distance, slot); }
    void put_extra(u32 bits, u32 count) { bits_.put(bits, count); }
    void set_context(u8 /*byte*/) {}

    u32 finish() { return models_.ok() ? static_cast<u32>(bits_.end() - begin_) : 0; }

  private:
    template <u32 Capacity>
    void put(m3_model<m3_encoder_tables, Capacity>& model, u32 symbol)
    {
        const m3_code code = model.tables.codes[symbol];
        bits_.put(code.code, code.length);
        m3_model_step(model, symbol);
    }

    m3_encoder_models& models_;
    u8* begin_;
    u8* limit_; // a stream that reaches it is not shorter than the block
    bit_writer bits_;
};

/// Writes literals and matches of at least MinMatch bytes as a stream of method 3.
template <u32 MinMatch>
using m3_tokens = alphabet_tokens<MinMatch, m3_symbol_writer>;

/// A token starts before the stream is as long as the block.
static_assert(m3_token_max_bytes + bit_writer_overrun <= out_slack);

static_assert(token_writer<m3_tokens<4>>);

} // namespace quarnex
