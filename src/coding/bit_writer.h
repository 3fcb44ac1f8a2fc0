// coding/bit_writer.h - bits to memory, the most significant bit of each byte first
#pragma once

#include "common/bytes.h"

namespace quarnex {

/// Bytes that a bit_writer may write behind the bits it was given.
inline constexpr u32 bit_writer_overrun = 8;

class bit_writer {
  public:
    /// The most bits of one put().
    static constexpr u32 most_bits = 56;

    explicit bit_writer(u8* out) : out_(out) {}

    /// Appends the lowest `count` bits of `bits` (0 to most_bits); those above them are 0.
    [[gnu::always_inline]] void put(u64 bits, u32 count)
    {
        held_ = held_ << count | bits;
        held_bits_ += count;
        // Of these 8 bytes the whole ones are settled.  (Two shifts, as 64 at once are too many.)
        store_u64_high_first(out_, held_ << 1 << (63 - held_bits_));
        out_ += held_bits_ / 8;
        held_bits_ %= 8;
    }

    /// Behind the last whole byte.
    u8* whole_bytes_end() const { return out_; }

    /// Where the stream ends: its last byte is filled up with zeros.
    u8* end() const { return out_ + (held_bits_ + 7) / 8; }

  private:
    u8* out_;           // where the held bits belong
    u64 held_ = 0;      // the lowest held_bits_ count; above them is what was written
    u32 held_bits_ = 0; // 0 to 7 between two calls
};

} // namespace quarnex
