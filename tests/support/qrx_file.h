// support/qrx_file.h - .qrx images built and taken apart, byte by byte
#pragma once

#include "support/shapes.h"

#include <optional>

namespace quarnex::test {

/// The numbers in a file's first 32 bytes.
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

/// The file in an image; nothing if the image is not a header with zeros in its reserved places,
/// and whole records behind it.
std::optional<qrx_file> take_qrx_apart(const bytes& image);

/// The displacement byte of a block that lies `distance` places from its record.
u8 displacement_of(i32 distance);

/// The payloads by block number; nothing if the displacements don't lead to one record each.
std::optional<std::vector<bytes>> payloads_in_order(const qrx_file& file);

/// A payload of method 1, levels 0 to 7, for a block of `length` (68 or more) equal bytes.
bytes m1_run_payload(u8 value, u32 length);

} // namespace quarnex::test
