// format/filters.h - pre-filters: reversible transforms of a block that make it more repetitive
//
// Applied before the encoder and undone after the decoder.  A filter works in place in O(n) time,
// keeps the length, and has no state from block to block.  Applying and undoing are exact inverses
// of each other on any bytes.  No byte outside the block is read or written.
#pragma once

#include "common/types.h"

#include <span>

namespace quarnex {

/// Values of the low nibble of a file's filter_flags; all others select no filter.
inline constexpr u8 filter_mask = 0x0F;
inline constexpr u8 filter_x86 = 1;
inline constexpr u8 filter_delta = 2;

enum class filter_use { apply, undo };

/// BCJ for x86 machine code: converts the relative targets of calls and jumps (opcodes E8 and E9)
/// to absolute ones, counted from the block's start.  All calls of one function then have the same
/// bytes.
void x86_filter(std::span<u8> block, filter_use use);

/// Delta coding of three-byte records: replaces each byte by its difference from the same byte of
/// the previous record.  One or two bytes after the last whole record stay unchanged.
void delta_filter(std::span<u8> block, filter_use use);

/// Applies or undoes the filter that `filter_flags` selects.
void run_filter(u8 filter_flags, std::span<u8> block, filter_use use);

} // namespace quarnex
