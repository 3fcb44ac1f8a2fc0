// plain/plain_encode.h - the plain encoders of all methods
#pragma once

#include "coding/codec.h"
#include "support/shapes.h"

namespace quarnex::test {

/// The payload of a block by the plain encoder of the parameters' method.
bytes plain_encode(const bytes& block, const codec_parameters& parameters);

} // namespace quarnex::test
