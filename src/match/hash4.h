// match/hash4.h - the hash of all hash searches
#pragma once

#include "common/types.h"

namespace quarnex {

/// Hash of four bytes, given as a little-endian word, in the range 0 to 2^bits - 1.
/// `bits` is 1 to 32.
constexpr u32 hash4(u32 word, i32 bits)
{
    return (word * 123456791U) >> (32 - bits);
}

} // namespace quarnex
