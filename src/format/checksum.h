// format/checksum.h - CRC-32 of the original, for the seal at the end of a file
//
// Polynomial and conventions of gzip and PNG.  The CRC-32s (sums) of blocks are computed
// independently and combined, so blocks can be coded in any order.
#pragma once

#include "common/types.h"

namespace quarnex {

/// Size of the seal: the CRC-32 of the original, little-endian, after the last record.  Readers
/// that don't know seals ignore it: they stop where fewer than five bytes are left.
inline constexpr usize seal_bytes = 4;

/// Updates a running CRC-32, which starts at 0, with `size` bytes and returns it.
u32 crc32(u32 sum, const u8* data, usize size);

/// Returns the CRC-32 of two pieces concatenated, from the CRC-32 of each, in O(log second_size).
///
/// Shifts the first CRC-32, a polynomial over GF(2), by multiplying it by x^(8 * second_size)
/// modulo the generator, then adds the second (as in zlib's crc32_combine() by Adler).
u32 combine_crc32(u32 first, u32 second, u64 second_size);

} // namespace quarnex
