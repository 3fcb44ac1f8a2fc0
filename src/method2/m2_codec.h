// method2/m2_codec.h - all that the rest of the program sees of method 2
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ with gamma codes.
extern const codec_entry m2_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m2_decoder;
/// What m2_decoder is on processors without has_bit_instructions().
extern const codec_entry m2_portable_decoder;

} // namespace quarnex
