// format/container.h - layout of a .qrx file around the payloads
//
//     header   | 0x00 "QR0" | original size: 8 | parameters: 16 | 0: 4 |
//     record   | payload size: 4 | displacement: 1 | payload |   one per block
//
// Records are in the order in which blocks were finished.  The displacement byte is the signed
// distance from a record's sequence number to its block's index, so that a writer needs neither to
// wait for earlier blocks nor to seek.
#pragma once

#include "format/file_parameters.h"

#include <array>

namespace quarnex {

inline constexpr usize file_header_bytes = 32;
inline constexpr usize record_head_bytes = 5;
/// Offset of the displacement byte in a record's head.
inline constexpr usize displacement_offset = 4;

struct file_header {
    u64 original_size;
    file_parameters parameters;
};

std::array<u8, file_header_bytes> pack_file_header(const file_header& header);

/// Parses a header.  Returns false if the magic letters are missing; tests nothing else.
bool unpack_file_header(const std::array<u8, file_header_bytes>& bytes, file_header& header);

/// Parses the fields of a header, with or without the magic letters.
file_header unpack_fields(const std::array<u8, file_header_bytes>& bytes);

struct record_head {
    u32 size; // bytes of the payload
    u8 displacement;
};

void pack_record_head(u8* dest, const record_head& head);
record_head unpack_record_head(const u8* src);

/// The displacement byte of block `block_index` in record `sequence` (from 0).  Its low bit is the
/// sign, the upper seven the distance, which is correct from -127 to 127.
u8 displacement_byte(u32 block_index, u32 sequence);

/// The index of the block in record `sequence`.  In a corrupt file it can be negative.
i64 displaced_index(u8 displacement, u32 sequence);

/// Number of blocks of a file of `size` bytes: 0 for an empty one.  `block_size` is 1 or more.
u64 count_blocks(u64 size, u64 block_size);

/// Length of block `index`, which is less than the number of blocks, or 0 in an empty file.
u64 block_length(u64 size, u64 block_size, u64 index);

/// True if a name ends in ".qrx", in upper or lower case.
bool has_suffix(const char* name);
inline constexpr const char* file_suffix = ".qrx";
inline constexpr usize file_suffix_bytes = 4;

} // namespace quarnex
