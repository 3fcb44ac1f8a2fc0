// method3/m3_decoder.cpp - the decoder of method 3
//
// A symbol is one table look-up by the next ten bits, or a walk over the lengths of longer codes.
// The payload's end is checked once a token.  Decoding of a damaged stream stops at the first token
// that reads past the payload or reaches back past the block's start.
#include "coding/alphabet_decoder.h"
#include "coding/bit_reader.h"
#include "coding/min_match.h"
#include "coding/payload_tail.h"
#include "method3/m3_codec.h"
#include "method3/m3_model.h"

namespace quarnex {
namespace {

/// Upper bound of the bytes read from one check of the payload's end to the next.
constexpr u32 m3_token_reads = alphabet_raw_bytes + m3_token_max_bytes + bit_reader_overread;

using m3_payload_tail = payload_tail<m3_token_reads>;
using m3_decoder_models = m3_models<m3_decoder_tables>;

/// The entropy decoder: symbols by their codes, extra bits verbatim.
class m3_symbol_reader {
  public:
    /// Starts after the raw byte.
    m3_symbol_reader(const codec_job& job, m3_decoder_models& models, m3_payload_tail& tail)
        : models_(models), tail_(tail), bits_(tail.settle(job.in_buf + alphabet_raw_bytes)),
          limit_(tail.limit())
    {
    }

    u32 take_main()
    {
        bits_.refill();
        return take(models_.main);
    }
    u32 take_length() { return take_slot(models_.length); }
    u32 take_distance() { return take_slot(models_.distance); }
    u32 take_extra(u32 count)
    {
        bits_.need(count);
        return bits_.take(count);
    }
    void set_context(u8 /*byte*/) {}
    bool ok() { return bits_.next_load() <= limit_ || in_payload(); }
    bool ended() const { return bits_.ends_at(tail_.end()); }

  private:
    /// Enters the tail at its start.  Returns false if the token is past the payload's end, or if a
    /// rebuilt code would be too long.
    bool in_payload()
    {
        if (!models_.ok()) return false;
        if (bits_.consumed_end() <= limit_) return true;
        if (tail_.entered()) return false;
        bits_.move_to(tail_.settle(bits_.consumed_end()));
        limit_ = tail_.limit();
        return true;
    }

    template <class Model>
    u32 take_slot(Model& model)
    {
        bits_.need(m3_max_code_bits);
        return take(model);
    }

    template <u32 Capacity>
    [[gnu::always_inline]] u32 take(m3_model<m3_decoder_tables, Capacity>& model)
    {
        using tables = m3_decoder_tables<Capacity>;
        const u32 entry = model.tables.lookup[bits_.peek(tables::lookup_bits)];
        u32 symbol = entry >> tables::length_bits;
        u32 length = entry % (1U << tables::length_bits);
        if (entry == tables::no_entry) [[unlikely]] {
            length = tables::lookup_bits + 1;
            while (bits_.peek(length) < model.tables.first_code[length]) ++length;
            const u32 rank = bits_.peek(length) - model.tables.first_code[length];
            symbol = model.tables.symbols[model.tables.first_index[length] + rank];
        }
        bits_.drop(length);
        if (count_symbol<1>(model.counts, symbol)) [[unlikely]] {
            m3_end_period(model);
            if (model.too_long) [[unlikely]]
                limit_ = bits_.next_load() - 1; // ok() then calls in_payload(), which fails
        }
        return symbol;
    }

    m3_decoder_models& models_;
    m3_payload_tail& tail_;
    bit_reader bits_;
    const u8* limit_; // of the tail
};

codec_result m3_decode_block(const codec_job& job, void* /*state*/)
{
    // An empty block has an empty stream.
    if (job.in_len == 0 || job.out_len == 0) return {.exact_end = job.in_len == job.out_len};
    *job.out_buf = *job.in_buf;
    m3_decoder_models models(job.out_len);
    m3_payload_tail tail(job);
    const m3_symbol_reader reader(job, models, tail);
    return with_min_match(job.parameters.level, [&](auto min_match) {
        return decode_alphabet<min_match>(reader, job.out_buf, job.out_len);
    });
}

} // namespace

const codec_entry m3_decoder{no_state, m3_decode_block, release_nothing, no_memory_needed};

} // namespace quarnex
