// pipeline/codec_table.h - which codec a method number stands for
#pragma once

#include "coding/codec.h"
#include "format/file_parameters.h"

#include <array>

namespace quarnex {

/// Rows by method; null where there is no codec.
extern const std::array<const codec_entry*, 8> encoder_table;
extern const std::array<const codec_entry*, 8> decoder_table;

/// How many encoders fit into `addresses` bytes of address space, with the memory of their level
/// and the buffers in circulation.  At least 1.
u32 encoders_with_room(const file_parameters& parameters, u64 addresses);

} // namespace quarnex
