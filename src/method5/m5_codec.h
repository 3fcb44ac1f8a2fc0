// method5/m5_codec.h - all that the rest of the program sees of method 5
#pragma once

#include "pipeline/codec.h"

namespace quarnex {

/// LZ with a binary range coder, the strongest method: levels 0 to 7.
extern const codec_entry m5_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m5_decoder;

} // namespace quarnex
