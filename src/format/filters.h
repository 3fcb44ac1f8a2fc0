// format/filters.h - pre-filters: what is done to a block before its encoder and undone behind
// its decoder, so that more of it repeats
//
// A filter works in place, keeps the length, and starts afresh in each block.  Applying and undoing
// are exact inverses of each other on any bytes.  No byte outside the block is read or written.
#pragma once

#include "common/types.h"

#include <span>

namespace quarnex {

/// What the low nibble of a file's filter_flags stands for; all other values are no filter.
inline constexpr u8 filter_mask = 0x0F;
inline constexpr u8 filter_x86 = 1;
inline constexpr u8 filter_delta = 2;

enum class filter_use { apply, undo };

/// For machine code of x86: the relative target of a branch (opcodes E8 and E9) becomes an absolute
/// one, counted from the block's start.  Calls of one function from several places then look alike.
void x86_filter(std::span<u8> block, filter_use use);

/// For records of three bytes: each byte becomes its difference to the same byte of the record
/// before.  One or two bytes behind the last whole record stay as they are.
void delta_filter(std::span<u8> block, filter_use use);

/// Applies or undoes the filter that `filter_flags` selects.
void run_filter(u8 filter_flags, std::span<u8> block, filter_use use);

} // namespace quarnex
