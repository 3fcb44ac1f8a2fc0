// plain/plain_range_coder.h - a plain implementation of the range coder of methods 4 and 5
//
// The reference for the real coders: one byte at a time, no shared code.  Methods 4 and 5 differ
// only in the division of the range.
#pragma once

#include "support/shapes.h"

namespace quarnex::test {

/// The encoder's half.
struct plain_range_coder {
    bytes out{};
    u64 low = 0; // bit 32 is a carry into the bytes held back
    u32 range = 0xFFFFFFFF;
    u8 cache = 0;    // held back until no carry can reach it
    u32 pending = 0; // bytes 0xFF held back after it

    /// Narrows the range to the part that starts at `start` and is `width` wide.
    void narrow(u32 start, u32 width);
    /// A value of `count` bits, 1 to 24, all values equally likely.
    void direct(u32 value, u32 count);
    void flush();

    void shift_low();
};

/// The decoder's half.  Trusts the stream.
struct plain_range_reader {
    const bytes& in;
    usize at;
    u32 range = 0xFFFFFFFF;
    u32 code = 0;

    /// The coder's first byte is always zero and is shifted out of `code`.
    plain_range_reader(const bytes& stream, usize start);

    void narrow(u32 start, u32 width);
    u32 direct(u32 count);
};

} // namespace quarnex::test
