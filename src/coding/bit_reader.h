// coding/bit_reader.h - bits from memory, the most significant bit of each byte first
//
// A window holds the next bits at its top.  refill() takes what there is room for in one load and
// without a branch, so a reader runs up to 7 bytes ahead of what it was asked for, and loads 8.
#pragma once

#include "common/bytes.h"

namespace quarnex {

/// Bytes behind the bits it was asked for that a bit_reader may load.
inline constexpr u32 bit_reader_reads_ahead = 7 + 8;

class bit_reader {
  public:
    /// Bits that a refilled window has at least.
    static constexpr u32 least_bits = 56;

    explicit bit_reader(const u8* in) : in_(in) {}

    /// Makes the window hold at least least_bits.
    void refill()
    {
        window_ |= load_u64_high_first(in_) >> held_;
        in_ += (63 - held_) / 8;
        held_ |= 56;
    }

    /// Makes the window hold at least `count` bits (up to least_bits).
    void need(u32 count)
    {
        if (held_ < count) [[unlikely]]
            refill();
    }

    /// The next `count` bits (1 to 32), which the window holds.
    u32 peek(u32 count) const { return static_cast<u32>(window_ >> (64 - count)); }

    /// Leaves out the next `count` bits, which the window holds.
    void drop(u32 count)
    {
        window_ <<= count;
        held_ -= count;
    }

    /// Takes the next `count` bits (1 to 32), which the window holds.
    u32 take(u32 count)
    {
        const u32 bits = peek(count);
        drop(count);
        return bits;
    }

    /// Behind the last byte of which a bit has been taken.
    const u8* taken_end() const { return in_ - held_ / 8; }

    /// Returns true if the last bit taken is in the last byte before `end` and the rest of that
    /// byte is zero, as bit_writer pads it.
    bool ends_at(const u8* end) const
    {
        // (Two shifts, as one by 64 is undefined.)
        return taken_end() == end && window_ >> 1 >> (63 - held_ % 8) == 0;
    }

  private:
    const u8* in_;   // the next byte to load
    u64 window_ = 0; // the next bits, from the top
    u32 held_ = 0;   // bits of the window that count, 0 to 63; those below them are right, or 0
};

} // namespace quarnex
