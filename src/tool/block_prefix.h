// tool/block_prefix.h - decodes the start of a block from the first bytes of its payload
#pragma once

#include "tool/options.h"

namespace tool {

/// The payload of a block of which only the first bytes are known.
struct partial_payload {
    std::vector<char> bytes; // of the full size; those after `known` are overwritten
    size_t known = 0;
};

/// Decodes as much of a block as the known bytes of its payload determine.  The unknown rest is
/// filled in several ways: up to their first difference, the results don't depend on it.
///
/// Decoders of methods 3 to 5 compare the payload with thresholds, so a token is certain if the
/// smallest rest (all 0x00) and the largest one (all 0xFF) give the same token.  Yet different
/// tokens can produce the same first bytes, and methods 1 and 2 don't compare at all.  Random rests
/// and a margin make a wrong byte improbable.
///
/// `block` has the length of the block, and receives zeros after the first `certain` bytes.
qrx_status decode_prefix(const qrx_params& params, partial_payload& payload,
                         std::vector<char>& block, size_t& certain);

} // namespace tool
