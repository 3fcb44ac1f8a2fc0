// plain/plain_encode.h - the plain encoders of all methods
#pragma once

#include "pipeline/codec.h"
#include "support/shapes.h"

namespace quarnex::test {

/// The payload of a block by the plain encoder of the parameters' method.
bytes plain_encode(const bytes& block, const file_parameters& parameters);

} // namespace quarnex::test
