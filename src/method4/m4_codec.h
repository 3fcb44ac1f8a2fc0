// method4/m4_codec.h - the interface of method 4
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ77 with an order-1 frequency-based range coder.
extern const codec_entry m4_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m4_decoder;

} // namespace quarnex
