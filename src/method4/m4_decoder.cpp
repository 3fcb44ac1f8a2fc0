// method4/m4_decoder.cpp - the decoder of method 4
//
// A symbol takes a division and a short search.  The payload's end is checked once a token.
// Decoding of a damaged stream stops at the first token that reads past the payload, reaches back
// past the block's start or has an impossible symbol.
#include "coding/alphabet_decoder.h"
#include "coding/min_match.h"
#include "coding/payload_tail.h"
#include "method4/m4_codec.h"
#include "method4/m4_coder.h"

namespace quarnex {
namespace {

/// Upper bound of the bytes read from one check of the payload's end to the next.
constexpr u32 m4_token_reads = alphabet_raw_bytes + range_start_bytes + m4_token_max_bytes;

using m4_payload_tail = payload_tail<m4_token_reads>;

/// The entropy decoder: symbols by their models, extra bits with equal probabilities.
///
/// The division for the next symbol starts as soon as the coder has finished its previous step.  It
/// overlaps with work that doesn't depend on it: the branch on the kind of token (above all when it
/// is mispredicted), the copy of a match, and the load of the next context.
class m4_symbol_reader {
  public:
    /// Starts after the raw byte.
    m4_symbol_reader(const codec_job& job, m4_dec_state& models, m4_payload_tail& tail)
        : models_(models), tail_(tail), mask_(m4_context_mask(job.parameters.lit_ctx_bits)),
          coder_(start_range_decoder(tail.settle(job.in_buf + alphabet_raw_bytes))),
          next_(m4_locate(coder_)), begin_(job.in_buf + alphabet_raw_bytes), limit_(tail.limit())
    {
        set_context(*job.in_buf);
    }

    [[gnu::always_inline]] u32 take_main()
    {
        const u32 symbol = take<m4_main_step>(*main_);
        next_ = m4_locate(coder_);
        return symbol;
    }
    [[gnu::always_inline]] u32 take_length() { return take_slot(models_.length); }
    [[gnu::always_inline]] u32 take_distance() { return take_slot(models_.distance); }
    [[gnu::always_inline]] u32 take_extra(u32 count)
    {
        const u32 bits = m4_decode_direct(coder_, count, damaged_);
        next_ = m4_locate(coder_);
        return bits;
    }
    void set_context(u8 byte) { main_ = models_.main + (byte & mask_); }
    bool ok() { return (coder_.in <= limit_ || enter_tail()) && !damaged_; }
    bool ended() const { return ends_at(coder_, begin_, tail_.end()) && !damaged_; }

  private:
    /// Continues in the tail.  Returns false if the token reads past the tail's end.
    bool enter_tail()
    {
        if (tail_.entered()) return false;
        coder_.in = tail_.settle(coder_.in);
        limit_ = tail_.limit();
        return true;
    }

    template <u32 Step, class Model>
    [[gnu::always_inline]] u32 take(Model& model)
    {
        const u32 symbol = m4_decode_freq(coder_, next_, model);
        if (symbol >= model.counts.symbols) [[unlikely]] {
            damaged_ = true;
            return 0;
        }
        m4_model_step<Step>(model, symbol);
        return symbol;
    }

    template <class Model>
    [[gnu::always_inline]] u32 take_slot(Model& model)
    {
        const u32 slot = take<m4_slot_step>(model);
        if (slot < plain_slots) next_ = m4_locate(coder_); // otherwise take_extra() follows
        return slot;
    }

    m4_dec_state& models_;
    m4_payload_tail& tail_;
    u32 mask_;
    m4_model<m4_lookup, main_symbols>* main_; // of the current context
    range_decoder coder_;
    m4_position next_; // up to date when a symbol follows
    const u8* begin_;  // of the range coder's bytes
    const u8* limit_;  // of the tail
    bool damaged_ = false;
};

codec_result m4_decode_block(const codec_job& job, void* state)
{
    // An empty block has an empty stream.
    if (job.in_len == 0 || job.out_len == 0) return {.exact_end = job.in_len == job.out_len};
    *job.out_buf = *job.in_buf;
    m4_dec_state& models = *static_cast<m4_dec_state*>(state);
    models.start(job.out_len);
    m4_payload_tail tail(job);
    const m4_symbol_reader reader(job, models, tail);
    return with_min_match(job.parameters.level, [&](auto min_match) {
        return decode_alphabet<min_match>(reader, job.out_buf, job.out_len);
    });
}

} // namespace

const codec_entry m4_decoder{m4_decoder_init, m4_decode_block, m4_decoder_release,
                             state_bytes<m4_dec_state>};

} // namespace quarnex
