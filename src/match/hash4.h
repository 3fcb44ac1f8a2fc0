// match/hash4.h - the hash function of all hash searches
//
// Multiplicative hashing (Knuth 1973): one multiplication and one shift.  The upper bits of the
// product depend on all bits of the word.
#pragma once

#include "common/types.h"

#include <cassert>

namespace quarnex {

/// True if a hash can have `bits` bits.
constexpr bool is_hash_size(i32 bits)
{
    return bits >= 1 && bits <= 32;
}

/// Hash of four bytes, given as a little-endian word: 0 to 2^bits - 1.  `bits` is 1 to 32.
constexpr u32 hash4(u32 word, i32 bits)
{
    assert(is_hash_size(bits));
    return (word * 123456791U) >> (32 - bits);
}

} // namespace quarnex
