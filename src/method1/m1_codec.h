// method1/m1_codec.h - all that the rest of the program sees of method 1
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// Byte-aligned LZ, the fastest method.
extern const codec_entry m1_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m1_decoder;
/// What m1_decoder is on processors without has_bit_instructions().
extern const codec_entry m1_portable_decoder;

} // namespace quarnex
