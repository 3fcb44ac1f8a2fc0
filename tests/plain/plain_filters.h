// plain/plain_filters.h - the pre-filters told step by step, byte by byte
//
// The judge of the real ones.  Each returns the block that `before` becomes when the filter is
// applied (`encoding`) or undone.
#pragma once

#include "support/shapes.h"

namespace quarnex::test {

bytes plain_x86_filter(const bytes& before, bool encoding);
bytes plain_delta_filter(const bytes& before, bool encoding);

} // namespace quarnex::test
