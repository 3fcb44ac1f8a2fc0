// method5/m5_codec.h - all that the rest of the program sees of method 5
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ with a binary range coder, the strongest method.
extern const codec_entry m5_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m5_decoder;

} // namespace quarnex
