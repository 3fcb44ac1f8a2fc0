// coding/bit_writer.h - writes bits to memory, most significant bit of each byte first
#pragma once

#include "common/bytes.h"

#include <cassert>

namespace quarnex {

/// Bytes past the bits written that a bit_writer may overwrite.
inline constexpr u32 bit_writer_overrun = 8;

class bit_writer {
  public:
    /// Maximum number of bits of one put().
    static constexpr u32 max_bits = 56;

    explicit bit_writer(u8* out) : out_(out) {}

    /// Appends the lowest `count` bits of `bits` (0 to max_bits); all higher bits must be 0.
    [[gnu::always_inline]] void put(u64 bits, u32 count)
    {
        assert(count <= max_bits && bits >> count == 0);
        held_ = held_ << count | bits;
        held_bits_ += count;
        // Stores 8 bytes and advances past the complete ones.  (Two shifts, as one by 64 is
        // undefined.)
        store_u64_high_first(out_, held_ << 1 << (63 - held_bits_));
        out_ += held_bits_ / 8;
        held_bits_ %= 8;
    }

    /// Returns the end of the last complete byte.
    u8* whole_bytes_end() const { return out_; }

    /// Returns the end of the stream, whose last byte is padded with zeros.
    u8* end() const { return out_ + (held_bits_ + 7) / 8; }

  private:
    u8* out_;           // where the held bits go
    u64 held_ = 0;      // the lowest held_bits_ are pending; above them are bits already written
    u32 held_bits_ = 0; // 0 to 7 between two calls
};

} // namespace quarnex
