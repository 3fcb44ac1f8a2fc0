// plain/plain_filters.h - reference implementation of the pre-filters, byte by byte
//
// Shares no code with the real ones, which the tests compare with these.  Each returns the result
// of applying (`encoding`) or undoing the filter on `before`.
#pragma once

#include "support/shapes.h"

namespace quarnex::test {

bytes plain_x86_filter(const bytes& before, bool encoding);
bytes plain_delta_filter(const bytes& before, bool encoding);

} // namespace quarnex::test
