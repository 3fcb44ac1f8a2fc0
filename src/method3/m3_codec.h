// method3/m3_codec.h - all that the rest of the program sees of method 3
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ with adaptive prefix codes.
extern const codec_entry m3_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m3_decoder;

} // namespace quarnex
