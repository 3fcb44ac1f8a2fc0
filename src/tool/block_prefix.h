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
/// Decoders of methods 3 to 5 compare the payload with thresholds, so a token is certain if the
/// smallest and the largest possible rest give the same one.  Different tokens can start with the
/// same bytes, though, and methods 1 and 2 read bytes in another order.  Random rests and a margin
/// make a wrong byte improbable.
///
/// `block` has the length of the block, and receives zeros after the first `certain` bytes.
qrx_status decode_prefix(const qrx_params& params, partial_payload& payload,
                         std::vector<char>& block, size_t& certain);

} // namespace tool
