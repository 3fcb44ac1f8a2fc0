// pipeline/header_search.h - reconstructs a damaged header from the records of a file
//
// The record heads give the number of blocks.  Decoding a few records with candidate parameters
// gives method, class of level, literal context bits and block size: with wrong ones a payload
// practically never ends exactly at a multiple of 1 MiB.  The last record gives the size of the
// original.  Values of the damaged header are tried first.
//
// What the records can't tell: the level within its class (0 to 7, or 8 and 9), the parameters of
// the encoder's tables, and the filter, unless block 0 starts as a Windows program does.  With a
// single block, methods 1 to 3 don't tell the class of the level either; then it is 0 to 7.  With
// methods 3 to 5 the original can get a few bytes too long, since their streams have no end token.
// Blocks of more than 64 MiB are found only if the header still has their size.
#pragma once

#include "common/byte_stream.h"
#include "common/owned_array.h"
#include "format/records.h"
#include "pipeline/notices.h"

#include <optional>

namespace quarnex {

/// Reconstructs the layout of a file of at least a header's size.  If the header `is_valid`,
/// `found` is set only if the records contradict it.  Nothing is found, either, without memory for
/// a trial. Fails if reading does.
[[nodiscard]] status find_layout(const allocator& source, const byte_source& file,
                                 const listener& watcher, bool is_valid,
                                 std::optional<file_layout>& found);

} // namespace quarnex
