// pipeline/header_search.h - reconstructs a damaged header from the records of a file
//
// The number of blocks follows from the record heads.  Method, class of level, literal context bits
// and block size are found by decoding a few records with candidate parameters: with wrong ones, a
// payload practically never ends exactly at a multiple of 1 MiB.  The size of the original follows
// from the last record.  Values of the damaged header are tried first.
//
// Not found: the level within its class (0 to 7, or 8 and 9), the parameters of the encoder's
// tables, and the filter, unless block 0 starts like a Windows program.  With a single block of
// methods 1 to 3, the class of the level isn't found either and 0 to 7 is assumed.  With methods 3
// to 5 the original can become a few bytes too long, since their streams have no end token.  Block
// sizes above 64 MiB are found only if the header still states them.
#pragma once

#include "common/byte_stream.h"
#include "common/owned_array.h"
#include "format/records.h"
#include "pipeline/notices.h"

#include <optional>

namespace quarnex {

/// Reconstructs the layout of a file that is at least as long as a header.  If the header
/// `is_valid`, `found` is set only if the records contradict it.  Otherwise it stays empty only if
/// no parameters fit.
///
/// Fails if reading fails.  Without enough memory, or if more than `memory_limit` bytes would be
/// needed, a valid header is believed; otherwise the search fails with no_memory or over_limit.
[[nodiscard]] status find_layout(const allocator& source, u64 memory_limit, const byte_source& file,
                                 const listener& watcher, bool is_valid,
                                 std::optional<file_layout>& found);

} // namespace quarnex
