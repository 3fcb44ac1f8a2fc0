// method2/m2_codec.h - the public interface of method 2
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// Encoder of LZ77 with Elias gamma codes.
extern const codec_entry m2_encoder;
/// Decoder for the streams of all levels.
extern const codec_entry m2_decoder;
/// The code path of m2_decoder on processors without has_bit_instructions(), for tests.
extern const codec_entry m2_portable_decoder;

} // namespace quarnex
