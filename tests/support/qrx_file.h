// support/qrx_file.h - builds and parses .qrx images independently of the program
#pragma once

#include "support/shapes.h"

#include <optional>

namespace quarnex::test {

inline constexpr usize header_bytes = 32;
inline constexpr usize record_head_bytes = 5;

/// The fields of a file header.
struct qrx_header {
    u64 original_size = 0;
    u8 method = 1;
    u8 level = 0;
    u8 lit_ctx_bits = 0;
    u8 filter_flags = 0;
    u16 block_mb = 1;
    u32 hash_bits = 12;
    u32 chain_bits = 1;

    bool operator==(const qrx_header&) const = default;
};

struct qrx_record {
    u8 displacement = 0;
    bytes payload;
};

struct qrx_file {
    qrx_header header;
    std::vector<qrx_record> records;
};

bytes build_qrx(const qrx_file& file);

/// Parses an image; returns nothing unless it is a header with zeros in its reserved fields,
/// followed by complete records.
std::optional<qrx_file> parse_qrx(const bytes& image);

/// Returns the displacement byte of a block whose index is its record's number plus `distance`.
u8 displacement_of(i32 distance);

/// Returns the payloads by block index; nothing unless each block has exactly one record.
std::optional<std::vector<bytes>> payloads_in_order(const qrx_file& file);

/// Returns a payload of method 1, levels 0 to 7, for a block of `length` (68 or more) equal bytes.
bytes m1_run_payload(u8 value, u32 length);

/// Returns a file of three blocks, the first two 1 MiB and swapped, the last short and stored.
qrx_file swapped_file();

} // namespace quarnex::test
