// method1/m1_codec.h - the public interface of method 1
#pragma once

#include "coding/codec.h"

namespace quarnex {

/// Encoder of byte-aligned LZ77, the fastest method.
extern const codec_entry m1_encoder;
/// Decoder for the streams of all levels.
extern const codec_entry m1_decoder;
/// The code path of m1_decoder on processors without has_bit_instructions(), for tests.
extern const codec_entry m1_portable_decoder;

} // namespace quarnex
