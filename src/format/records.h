// format/records.h - where the records of a file belong, and whether they can be right
//
// All that is checked of a header and of record heads before anything is allocated or decoded.
#pragma once

#include "format/container.h"

#include <optional>

namespace quarnex {

/// A file as its header describes it.
struct file_layout {
    file_parameters parameters;
    u64 original_size = 0;
    u32 block_count = 0; // 0 for an empty file

    /// Records of a whole file: one for each block, and one of an empty file.
    u32 record_count() const { return block_count != 0 ? block_count : 1; }
};

/// Describes a file by its header.  Nothing if no file has such a header: a level above 9 or a
/// block size of 0.  The number of blocks is clamped to 32 bits, more than any real file has.
std::optional<file_layout> lay_out(const file_header& header);

/// The block of a record.
struct block_place {
    u32 index;
    u32 length; // bytes of the original block
};

/// Finds the block of record number `sequence` (from 0) by its head.  Nothing if there is no such
/// block: more records than blocks, a number outside the file, a block above 2^31 - 1 bytes, a
/// payload larger than its block, or one that needs a method that doesn't exist.
std::optional<block_place> find_block(const file_layout& layout, const record_head& head,
                                      u32 sequence);

} // namespace quarnex
