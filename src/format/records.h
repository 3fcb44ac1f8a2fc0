// format/records.h - validation of headers and record heads
//
// Everything here is checked before any memory is allocated or anything is decoded.
#pragma once

#include "format/container.h"

#include <optional>

namespace quarnex {

/// A file, as described by its header.
struct file_layout {
    file_parameters parameters;
    u64 original_size = 0;
    u32 block_count = 0; // 0 for an empty file

    /// Records of a complete file: one per block, and one in an empty file.
    u32 record_count() const { return block_count != 0 ? block_count : 1; }
};

/// Derives the layout of a file from its header.  Returns nothing for an impossible header: a level
/// above 9 or a block size of 0.  The number of blocks is clamped to 2^32 - 1, which no real file
/// reaches.
std::optional<file_layout> lay_out(const file_header& header);

/// The block that a record restores.
struct block_extent {
    u32 index;
    u32 length; // of the original block, in bytes
};

/// Finds the block of record `sequence` (from 0) by its head.  Returns nothing for a corrupt
/// record: more records than blocks, an index outside the file, a block of more than 2^31 - 1
/// bytes, a payload longer than its block, or a shorter payload (a coded block) with an unknown
/// method.
std::optional<block_extent> find_block(const file_layout& layout, const record_head& head,
                                       u32 sequence);

} // namespace quarnex
