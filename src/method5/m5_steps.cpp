#include "method5/m5_steps.h"

namespace quarnex {
namespace {

/// Codes a step and writes its bytes at once.
void encode_step(range_encoder& encoder, m5_step step)
{
    const auto value = static_cast<u32>(step);
    if (m5_is_direct(step)) {
        encode_direct(encoder, value % (1U << m5_direct_bits), value >> m5_direct_bits);
        return;
    }
    const auto one = static_cast<u32>(step >> 31); // all ones for a 1
    const u32 range = (encoder.range & one) + value * (encoder.range >> m5_prob_bits);
    encoder.low += (encoder.range - range) & one;
    encoder.range = range;
    normalize(encoder);
}

/// Codes steps in groups.
///
/// Holds the last bytes of the stream in a register and stores all of them after each group, so
/// that a carry is part of an addition.  A carry hardly ever passes all of these bytes.
class group_coder {
  public:
    /// Steps in a group.
    static constexpr i32 group = 3;
    /// Bytes of the stream that must precede a group.
    static constexpr i32 tail_bytes = sizeof(u64);

    explicit group_coder(const range_encoder& encoder)
        : out_(encoder.out),
          tail_(load_u64_high_first(encoder.out - tail_bytes)), interval_{encoder.range,
                                                                          encoder.range >>
                                                                              m5_prob_bits,
                                                                          encoder.low, 0}
    {
    }

    [[gnu::always_inline]] void encode(const m5_step* steps)
    {
#pragma GCC unroll 3
        for (u32 i = 0; i < group; ++i) encode(steps[i]);
        write();
    }

    range_encoder encoder() const
    {
        return {out_, interval_.low, interval_.range};
    }

  private:
    // A step that shifts out more than one byte calls write() itself.
    static_assert(32 + 8 * group + 1 <= 64, "interval, bytes of a group and carry fit in `low`");

    [[gnu::always_inline]] void encode(m5_step step)
    {
        if (m5_is_direct(step)) [[unlikely]] {
            encode_direct_bits(static_cast<u32>(step));
            return;
        }
        const auto one = static_cast<u32>(step >> 31); // all ones for a 1
        // The part of a 0 is mean * units, that of a 1 the rest: range - mean * units.
        const u32 range = (interval_.range & one) + static_cast<u32>(step) * interval_.units;
        interval_.low += (interval_.range - range) & one;
        interval_.range = range;
        m5_shift(interval_);
        if (interval_.range < min_range) [[unlikely]]
            shift_more();
    }

    [[gnu::always_inline]] void encode_direct_bits(u32 step)
    {
        interval_.range >>= step >> m5_direct_bits;
        write();
        const u32 skipped = step % (1U << m5_direct_bits) * interval_.range;
        interval_.low += skipped;
        shift_more();
    }

    /// Shifts out up to three bytes.
    [[gnu::always_inline]] void shift_more()
    {
        write();
        const u32 bits = settled_bits(interval_.range);
        interval_.range <<= bits;
        interval_.units = interval_.range >> m5_prob_bits;
        interval_.low <<= bits;
        interval_.shifted = bits / 8;
        write();
    }

    /// Writes the bytes above the interval, and the carry.
    [[gnu::always_inline]] void write()
    {
        const u64 settled = interval_.low >> 32;
        interval_.low = static_cast<u32>(interval_.low);
        tail_ = (tail_ << 8 * interval_.shifted) + settled;
        out_ += interval_.shifted;
        interval_.shifted = 0;
        if (tail_ < settled) [[unlikely]] {
            range_encoder before{out_ - tail_bytes, u64{1} << 32}; // nothing but the carry
            propagate_carry(before);
        }
        store_u64_high_first(out_ - tail_bytes, tail_);
    }

    u8* out_;  // next byte to write
    u64 tail_; // the bytes before it, the last one lowest
    m5_interval interval_;
};

} // namespace

range_encoder m5_encode_steps(range_encoder encoder, const u8* begin, const m5_step* step,
                              const m5_step* end)
{
    while (step != end && encoder.out - begin < group_coder::tail_bytes) {
        encode_step(encoder, *step++);
    }
    if (end - step >= group_coder::group) {
        group_coder coder(encoder);
        for (; end - step >= group_coder::group; step += group_coder::group) coder.encode(step);
        encoder = coder.encoder();
    }
    while (step != end) encode_step(encoder, *step++);
    return encoder;
}

} // namespace quarnex
