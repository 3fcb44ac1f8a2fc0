// pipeline/codec_table.h - maps method numbers to codecs
#pragma once

#include "coding/codec.h"
#include "format/file_parameters.h"

#include <array>

namespace quarnex {

/// Indexed by method number; null where there is no codec.
extern const std::array<const codec_entry*, 8> encoder_table;
extern const std::array<const codec_entry*, 8> decoder_table;

/// Returns how many encoders fit into `address_bytes` bytes of address space together with their
/// match finders' memory and the block buffers in circulation.  At least 1.
u32 max_encoders(const file_parameters& parameters, u64 address_bytes);

} // namespace quarnex
