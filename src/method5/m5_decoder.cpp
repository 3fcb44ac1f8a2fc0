// method5/m5_decoder.cpp - the decoder of method 5
#include "common/copy.h"
#include "method5/m5_codec.h"
#include "method5/m5_coder.h"

#include <algorithm>

namespace quarnex {
namespace {

/// A stream while it is decoded.
template <u32 MinMatch>
struct m5_decoding {
    m5_model& model;
    u8* const begin;
    const u32 size; // of the block
    m5_decoder_registers registers;
    u32 pos = m5_raw_bytes; // in the block
    u32 history;            // the last bytes, of which twelve bits count

    /// Takes a token.  False at damage.
    bool take_token()
    {
        if (m5_decode_bit(registers, model.match_flag[history & 0xFF]) != 0) return take_match();
        take_literal();
        return true;
    }

  private:
    void take_literal()
    {
        u32 bits = history;
        for (u32 place = 4; place-- != 0;) {
            bits = bits << 1 | m5_decode_bit(registers, model.lit_high[place][bits & 0xFFF]);
        }
        for (u32 place = 4; place-- != 0;) {
            bits = bits << 1 | m5_decode_bit(registers, model.lit_low[place][bits & 0xFFF]);
        }
        begin[pos++] = static_cast<u8>(bits);
        history = bits;
    }

    bool take_match()
    {
        u32 ones = 0;
        while (m5_decode_bit(registers, model.len_prefix[ones + 1]) != 0) {
            if (++ones == m5_max_length_bits) return false;
        }
        u32 length_value = 1;
        for (u32 place = ones + 1; place-- != 0;) {
            length_value =
                length_value << 1 | m5_decode_bit(registers, model.len_bits[ones][place]);
        }
        if (length_value < m5_least_length_value) {
            if (length_value == 0) return false;
            take_literal();
            return true;
        }
        const u32 offset = take_offset(model.dist_slot[m5_length_class(length_value)]);
        if (offset >= pos) return false;
        const u64 wanted = u64{length_value} - m5_least_length_value + MinMatch;
        const auto len = static_cast<u32>(std::min<u64>(wanted, size - pos));
        copy_match(begin + pos, offset + 1, len);
        pos += len;
        history = u32{begin[pos - 2]} << 8 | begin[pos - 1];
        return true;
    }

    /// Takes a distance less one.
    u32 take_offset(m5_prob_pair* slots)
    {
        const u32 slot = m5_decode_tree(registers, slots, m5_slot_bits);
        if (slot < plain_slots) return slot;
        const u32 base = slot_base(slot);
        const u32 width = slot_extra_bits(slot);
        if (slot < m5_first_high_slot) {
            return base + m5_decode_tree(registers, model.dist_mid + base, width);
        }
        const u32 direct = width - m5_top_bits;
        const u32 top =
            m5_decode_tree(registers, model.dist_top[slot - m5_first_high_slot], m5_top_bits);
        return base + (top << direct) + m5_decode_direct(registers, direct);
    }
};

template <u32 MinMatch>
i32 m5_decode(const block_job& job, m5_model& model)
{
    const u32 raw = std::min({m5_raw_bytes, job.in_len, job.out_len});
    std::copy_n(job.in_buf, raw, job.out_buf);
    if (job.out_len <= m5_raw_bytes || raw < m5_raw_bytes) return static_cast<i32>(raw);
    m5_decoding<MinMatch> stream{model, job.out_buf, job.out_len,
                                 m5_start_decoder(job.in_buf + m5_raw_bytes)};
    stream.history = u32{job.out_buf[0]} << 8 | job.out_buf[1];
    const u8* const in_end = job.in_buf + job.in_len;
    if (stream.registers.code == m5_full_range) return static_cast<i32>(raw);
    u32 done = raw;
    while (done < job.out_len && stream.take_token() && stream.registers.in <= in_end) {
        done = stream.pos;
    }
    return static_cast<i32>(done);
}

i32 m5_decode_block(const block_job& job, void* state)
{
    m5_model& model = *static_cast<m5_model*>(state);
    switch (m5_min_match(job.parameters.level)) {
    case 4:
        return m5_decode<4>(job, model);
    case 3:
        return m5_decode<3>(job, model);
    default:
        return m5_decode<2>(job, model);
    }
}

} // namespace

const codec_entry m5_decoder{m5_decoder_init, m5_decode_block, m5_release};

} // namespace quarnex
