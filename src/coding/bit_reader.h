// coding/bit_reader.h - reads bits from memory, most significant bit of each byte first
//
// A 64-bit window holds the next bits at its top.  refill() is the branch-free refill of Giesen
// ("Reading bits in far too many ways", variant 4): one unaligned 8-byte load, which overlaps the
// bytes already held.  A load thus starts up to 7 bytes past the last consumed bit and reads 8.
#pragma once

#include "common/bytes.h"

#include <cassert>

namespace quarnex {

/// Bytes past the last consumed bit that a bit_reader may load.
inline constexpr u32 bit_reader_overread = 7 + 8;

class bit_reader {
  public:
    /// Valid bits after refill(), at least.
    static constexpr u32 min_bits = 56;

    explicit bit_reader(const u8* in) : in_(in) {}

    /// Fills the window to at least min_bits.
    void refill()
    {
        window_ |= load_u64_high_first(in_) >> held_;
        in_ += (63 - held_) / 8;
        held_ |= 56;
    }

    /// Fills the window to at least `count` bits (up to min_bits).
    void need(u32 count)
    {
        if (held_ < count) [[unlikely]]
            refill();
    }

    /// Returns the next `count` bits (1 to 32), which the window must hold.
    u32 peek(u32 count) const { return static_cast<u32>(window_ >> (64 - count)); }

    /// Consumes the next `count` bits, which the window must hold.
    void drop(u32 count)
    {
        assert(count <= held_);
        window_ <<= count;
        held_ -= count;
    }

    /// Consumes and returns the next `count` bits (1 to 32), which the window must hold.
    u32 take(u32 count)
    {
        const u32 bits = peek(count);
        drop(count);
        return bits;
    }

    /// Returns the next byte to load: consumed_end() or up to 7 bytes after it.
    const u8* next_load() const { return in_; }

    /// Returns the end of the last byte of which a bit has been consumed.
    const u8* consumed_end() const { return in_ - held_ / 8; }

    /// Continues with the same bytes at another place, given that of consumed_end().
    void move_to(const u8* consumed) { in_ = consumed + held_ / 8; }

    /// Returns true if the last consumed bit is in the last byte before `end` and the rest of that
    /// byte is zero, as bit_writer pads it.
    bool ends_at(const u8* end) const
    {
        // (Two shifts, as one by 64 is undefined.)
        return consumed_end() == end && window_ >> 1 >> (63 - held_ % 8) == 0;
    }

  private:
    const u8* in_;   // next byte to load
    u64 window_ = 0; // next bits, from the top
    u32 held_ = 0;   // valid bits, 0 to 63; lower bits are either the correct next bits or 0
};

} // namespace quarnex
