// method5/m5_tokens.h - the token writer of method 5
#pragma once

#include "coding/codec.h"
#include "match/concepts.h"
#include "method5/m5_coder.h"

#include <bit>
#include <cassert>

namespace quarnex {

/// Writes literals and matches of at least MinMatch bytes as a stream of method 5.
template <u32 MinMatch>
class m5_tokens {
  public:
    static constexpr u32 first_pos = m5_raw_bytes;
    static constexpr u32 min_match = MinMatch;

    /// Starts a stream for a block and writes its raw bytes.
    m5_tokens(const codec_job& job, m5_model& model)
        : model_(model), text_(job.in_buf), begin_(job.out_buf), limit_(job.out_buf + job.in_len),
          coder_(start_range_encoder(job.out_buf + m5_raw_bytes))
    {
        store_u16(begin_, load_u16(text_));
        history_ = m5_history_at(text_ + first_pos);
    }

    bool full() const { return coder_.out >= limit_; }

    void literal(u32 pos)
    {
        // The context of each bit is the twelve bits above it.
        const u32 bits = history_ << 8 | text_[pos];
        m5_encode_bit(coder_, model_.match_flag[m5_flag_context(history_)], 0);
        put_nibble(model_.lit_high, bits >> m5_nibble_bits);
        put_nibble(model_.lit_low, bits);
        history_ = bits;
    }

    void match(u32 pos, u32 len, u32 dist)
    {
        assert(len >= MinMatch && dist >= 1);
        m5_encode_bit(coder_, model_.match_flag[m5_flag_context(history_)], 1);
        const u32 length_value = len - MinMatch + m5_min_length_value;
        put_length(length_value);
        put_offset(dist - 1, model_.dist_slot[m5_length_class(length_value)]);
        history_ = m5_history_at(text_ + pos + len);
    }

    /// Ends the stream and returns its length.
    u32 finish()
    {
        flush(coder_);
        return static_cast<u32>(coder_.out - begin_);
    }

  private:
    /// Writes the lowest four bits.
    void put_nibble(m5_nibble_models& models, u32 bits)
    {
        for (u32 place = m5_nibble_bits; place-- != 0;) {
            const u32 context = m5_literal_context(bits >> (place + 1));
            m5_encode_bit(coder_, models[place][context], bits >> place & 1);
        }
    }

    void put_length(u32 length_value)
    {
        const auto below = static_cast<u32>(std::bit_width(length_value)) - 1; // the leading one
        for (u32 step = 1; step < below; ++step) {
            m5_encode_bit(coder_, model_.len_prefix[step], 1);
        }
        m5_encode_bit(coder_, model_.len_prefix[below], 0);
        for (u32 place = below; place-- != 0;) {
            m5_encode_bit(coder_, model_.len_bits[below - 1][place], length_value >> place & 1);
        }
    }

    void put_offset(u32 offset, m5_prob_pair* slots)
    {
        const u32 slot = value_slot(offset);
        m5_encode_tree(coder_, slots, slot, m5_slot_bits);
        if (slot < plain_slots) return;
        const u32 width = slot_extra_bits(slot);
        const u32 extra = offset - slot_base(slot);
        if (slot < m5_first_high_slot) {
            m5_encode_tree(coder_, model_.dist_mid + slot_base(slot), extra, width);
            return;
        }
        const u32 direct = width - m5_top_bits;
        m5_encode_tree(coder_, model_.dist_top[slot - m5_first_high_slot], extra >> direct,
                       m5_top_bits);
        encode_direct(coder_, extra & ((1U << direct) - 1), direct);
    }

    m5_model& model_;
    const u8* text_;
    u8* begin_;
    u8* limit_; // a stream that reaches it is not shorter than the block
    range_encoder coder_;
    u32 history_; // the last bytes, the latest lowest; twelve bits are used
};

/// A token starts before the stream is as long as the block, and the flush may follow it.
static_assert(m5_token_max_bytes + range_flush_bytes <= out_slack);
/// For a block of one byte, the coder's first byte and the flush come after two raw bytes.
static_assert(m5_raw_bytes + 1 + range_flush_bytes <= out_slack);

static_assert(token_writer<m5_tokens<4>>);

} // namespace quarnex
