// method1/m1_codec.h - all that the rest of the program sees of method 1
#pragma once

#include "pipeline/codec.h"

namespace quarnex {

/// Byte-aligned LZ, the fastest method: levels 0 to 2.
extern const codec_entry m1_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m1_decoder;

} // namespace quarnex
