// method5/m5_codec.h - the interface of method 5
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ77 with an adaptive binary range coder, the strongest method.
extern const codec_entry m5_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m5_decoder;

} // namespace quarnex
