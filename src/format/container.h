// format/container.h - the bytes of a .qrx file around the payloads
//
//     header   | 0x00 "QR0" | original size: 8 | parameters: 16 | 0: 4 |
//     record   | payload size: 4 | displacement: 1 | payload |   once for each block
//
// Records lie in the order in which blocks were finished.  The displacement byte is the distance
// from a record's place to its block's number.
#pragma once

#include "format/file_parameters.h"

#include <array>

namespace quarnex {

inline constexpr usize file_header_bytes = 32;
inline constexpr usize record_head_bytes = 5;
/// Where the displacement byte stands in a record's head.
inline constexpr usize displacement_offset = 4;

struct file_header {
    u64 original_size;
    file_parameters parameters;
};

std::array<u8, file_header_bytes> pack_file_header(const file_header& header);

/// Takes a header apart.  Returns false if it lacks the magic letters; nothing else is tested.
bool unpack_file_header(const std::array<u8, file_header_bytes>& bytes, file_header& header);

struct record_head {
    u32 size; // bytes of the payload
    u8 displacement;
};

void pack_record_head(u8* to, const record_head& head);
record_head unpack_record_head(const u8* from);

/// The displacement byte of block `block_index` in the record number `sequence` of its file.
/// Right for distances of -127 to 127.
u8 displacement_byte(u32 block_index, u32 sequence);

/// The number of the block in the record number `sequence`.  Damage can make it negative.
i64 displaced_index(u8 displacement, u32 sequence);

/// Blocks in a file of `size` bytes: none for an empty one.  `block_size` is 1 or more.
u64 count_blocks(u64 size, u64 block_size);

/// Length of block `index` (below the number of blocks, or 0 in an empty file).
u64 block_length(u64 size, u64 block_size, u64 index);

/// Whether a name ends in ".qrx", in any mix of cases.
bool has_suffix(const char* name);
inline constexpr const char* file_suffix = ".qrx";
inline constexpr usize file_suffix_bytes = 4;

} // namespace quarnex
