// tool/block_prefix.h - the start of a block whose payload is known in part
#pragma once

#include "tool/options.h"

namespace tool {

/// The payload of a block of which only the first bytes are known.
struct partial_payload {
    std::vector<char> bytes; // of the full size; those after `known` are overwritten
    size_t known = 0;
};

/// Decodes as much of a block as its payload determines.  The missing part of the payload is filled
/// in several ways; up to where the results first differ, they don't depend on it.
///
/// Methods 3 to 5 compare the payload with thresholds, in order of its bits.  So if the smallest
/// and the largest possible rest give the same byte, all do.  For methods 1 and 2 this is likely
/// only.
///
/// `block` has the length of the block, and receives zeros after the first `certain` bytes.
qrx_status decode_prefix(const qrx_params& params, uint64_t memory_limit, partial_payload& payload,
                         std::vector<char>& block, size_t& certain);

} // namespace tool
