// format/checksum.h - CRC-32 of the original, and the seal that ends a file with it
//
// The polynomial and conventions of gzip and PNG.  Blocks are summed independently and their sums
// combined, so the order in which they are coded doesn't matter.
#pragma once

#include "common/types.h"

namespace quarnex {

/// Size of the seal: the CRC-32 of the original, little-endian, after the last record.  Readers
/// that know no seals stop at fewer than five bytes, and ignore it.
inline constexpr usize seal_bytes = 4;

/// Returns the CRC-32 of `size` bytes, continued from `sum`, which is 0 at the start.
u32 crc32(u32 sum, const u8* data, usize size);

/// Returns the CRC-32 of two pieces in a row from their sums, in O(log second_size) steps.
///
/// Appending n zero bits multiplies a sum, as a polynomial over GF(2), by x^n modulo the
/// generator; sums are linear otherwise (as in zlib's crc32_combine() by Adler).
u32 combine_crc32(u32 first, u32 second, u64 second_size);

} // namespace quarnex
