// method5/m5_decoder.cpp - the decoder of method 5
//
// Decoding is a single dependency chain: each bit needs the interval that the previous one left.
// Flags and length prefixes are predictable and decoded with branches; literals, slots and distance
// bits are not and are decoded in branch-free chains (m5_coder.h).
//
// Both buffer ends are checked once a token, and a match is cut to the room left.  Decoding of a
// damaged stream stops at the first token that reads past the payload, reaches back past the
// block's start or has an impossible length.
#include "coding/last_match.h"
#include "coding/payload_tail.h"
#include "method5/m5_codec.h"
#include "method5/m5_coder.h"

#include <algorithm>

namespace quarnex {
namespace {

/// Upper bound of the bytes read from one check of the payload's end to the next.
constexpr u32 m5_token_reads = m5_raw_bytes + range_start_bytes + m5_token_max_bytes;

using m5_payload_tail = payload_tail<m5_token_reads>;

/// The decoder of one stream.
template <u32 MinMatch>
class m5_decoding {
  public:
    /// Starts after the raw bytes, which are in the block already.
    m5_decoding(const codec_job& job, m5_model& model, m5_payload_tail& tail)
        : model_(model), tail_(tail), begin_(job.out_buf), size_(job.out_len),
          copy_end_(whole_copy_end(job.out_len)),
          coder_(start_range_decoder(tail.settle(job.in_buf + m5_raw_bytes))),
          in_limit_(tail.limit())
    {
        history_ = m5_history_at(begin_ + pos_);
    }

    /// Returns false if no encoder can have written the first code bytes.
    bool starts() const { return coder_.code < coder_.range; }
    /// Returns the position in the block.
    u32 pos() const { return pos_; }
    /// Returns false if the last token reads past the payload.
    bool in_payload() { return coder_.in <= in_limit_ || enter_tail(); }
    /// Returns true if the last token ended where an encoder's can, the payload is consumed and
    /// ends as an encoder ends it.
    bool ended(const codec_job& job) const
    {
        return pos_ - size_ <= max_match_overrun(MinMatch) &&
               ends_at(coder_, job.in_buf + m5_raw_bytes, tail_.end());
    }

    /// Decodes a token.  Returns false, with the position unchanged, at damage.
    [[gnu::always_inline]] bool take_token()
    {
        if (m5_decode_bit(coder_, model_.match_flag[m5_flag_context(history_)]) != 0)
            return take_match();
        take_literal();
        return true;
    }

  private:
    /// Continues in the tail.  Returns false if the token reads past the tail's end.
    bool enter_tail()
    {
        if (tail_.entered()) return false;
        coder_.in = tail_.settle(coder_.in);
        in_limit_ = tail_.limit();
        return true;
    }

    [[gnu::always_inline]] void take_literal()
    {
        constexpr u32 top = m5_nibble_bits - 1;
        u32 bits = history_;
        m5_decoder_chain chain(model_.lit_high[top][m5_literal_context(bits)]);
        take_nibble(chain, model_.lit_high, model_.lit_low[top], bits);
        take_nibble(chain, model_.lit_low, model_.lit_low[0], bits); // there is no next bit
        begin_[pos_++] = static_cast<u8>(bits);
        history_ = bits;
    }

    /// Decodes four bits of a literal into `bits`.  `following` are the models of the next bit.
    [[gnu::always_inline]] void take_nibble(m5_decoder_chain& chain, m5_nibble_models& models,
                                            const m5_prob_pair* following, u32& bits)
    {
#pragma GCC unroll 4
        for (u32 step = 1; step <= m5_nibble_bits; ++step) {
            const u32 place = m5_nibble_bits - step;
            m5_prob_pair* const at = &models[place][m5_literal_context(bits)];
            const m5_prob_pair* const next = place != 0 ? models[place - 1] : following;
            chain.step(coder_, at, next + m5_literal_context(bits << 1), bits);
        }
    }

    [[gnu::always_inline]] bool take_match()
    {
        const u32 length_value = take_length();
        if (length_value < m5_min_length_value) {
            if (length_value != m5_overflowed_length) return false;
            take_literal();
            return true;
        }
        const u32 offset = take_offset(model_.dist_slot[m5_length_class(length_value)]);
        if (offset >= pos_) return false;
        const u64 coded_len = u64{length_value} - m5_min_length_value + MinMatch;
        const u32 dist = offset + 1;
        if (pos_ + coded_len > copy_end_) [[unlikely]] {
            pos_ = copy_last_match<MinMatch>(begin_, size_, pos_, dist, coded_len);
            if (pos_ < size_) history_ = m5_history_at(begin_ + pos_);
            return true;
        }
        const auto len = static_cast<u32>(coded_len);
        copy_match(begin_ + pos_, dist, len);
        pos_ += len;
        // The copy's last stores may still be in flight.  If the match doesn't overlap itself, its
        // source holds the same bytes, which can be loaded at once.
        const u32 same = pos_ - (dist < len ? 0 : dist);
        history_ = m5_history_at(begin_ + same);
        return true;
    }

    /// Decodes a length value.  Returns 0 if it is impossible.
    [[gnu::always_inline]] u32 take_length()
    {
        u32 ones = 0;
        while (m5_decode_bit(coder_, model_.len_prefix[ones + 1]) != 0) {
            if (++ones == m5_max_length_bits) return 0;
        }
        u32 length_value = 1;
        for (u32 place = ones + 1; place-- != 0;) {
            m5_prob_pair* const pairs = model_.len_bits[ones];
            m5_decoder_chain(pairs[place]).step(coder_, pairs + place, pairs, length_value);
        }
        return length_value;
    }

    /// Decodes a distance less one.
    [[gnu::always_inline]] u32 take_offset(m5_prob_pair* slots)
    {
        const u32 slot = m5_decode_tree(coder_, slots, m5_slot_bits);
        if (slot < plain_slots) return slot;
        const u32 base = slot_base(slot);
        const u32 width = slot_extra_bits(slot);
        if (slot < m5_first_high_slot) {
            return base + m5_decode_tree(coder_, model_.dist_mid + base, width);
        }
        const u32 direct = width - m5_top_bits;
        m5_prob_pair* const tops = model_.dist_top[slot - m5_first_high_slot];
        const u32 top = m5_decode_tree(coder_, tops, m5_top_bits);
        return base + (top << direct) + decode_direct(coder_, direct);
    }

    m5_model& model_;
    m5_payload_tail& tail_;
    u8* const begin_;
    const u32 size_;     // of the block
    const u32 copy_end_; // of matches in it
    range_decoder coder_;
    const u8* in_limit_; // of the tail
    u32 pos_ = m5_raw_bytes;
    u32 history_ = 0; // the last bytes, the latest lowest; twelve bits are used
};

template <u32 MinMatch>
codec_result m5_decode(const codec_job& job, m5_model& model)
{
    const u32 raw = std::min({m5_raw_bytes, job.in_len, job.out_len});
    std::copy_n(job.in_buf, raw, job.out_buf);
    if (raw < m5_raw_bytes) { // not a stream, unless it is the empty one of an empty block
        return {.length = raw, .exact_end = job.in_len == 0 && job.out_len == 0};
    }
    m5_payload_tail tail(job);
    m5_decoding<MinMatch> stream(job, model, tail);
    if (!stream.starts()) return {.length = raw};
    // A token that reads past the payload doesn't count: its last bits are not in the stream.
    while (stream.pos() < job.out_len) {
        const u32 done = stream.pos();
        if (!stream.take_token() || !stream.in_payload()) return {.length = done};
    }
    return {.length = job.out_len, .exact_end = stream.ended(job)};
}

codec_result m5_decode_block(const codec_job& job, void* state)
{
    m5_model& model = *static_cast<m5_model*>(state);
    return with_min_match(job.parameters.level,
                          [&](auto min_match) { return m5_decode<min_match>(job, model); });
}

} // namespace

const codec_entry m5_decoder{init_state<m5_model>, m5_decode_block, release_state<m5_model>,
                             state_bytes<m5_model>};

} // namespace quarnex
