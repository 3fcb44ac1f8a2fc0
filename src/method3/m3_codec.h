// method3/m3_codec.h - the interface of method 3
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// LZ77 with adaptive Huffman codes.
extern const codec_entry m3_encoder;
/// Decodes the streams of all levels.
extern const codec_entry m3_decoder;

} // namespace quarnex
