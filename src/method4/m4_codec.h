// method4/m4_codec.h - all that the rest of the program sees of method 4
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ with a range coder over frequencies, literals in context.
extern const codec_entry m4_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m4_decoder;

} // namespace quarnex
