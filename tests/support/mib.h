// support/mib.h - the unit of block sizes
#pragma once

#include "common/types.h"

namespace quarnex::test {

inline constexpr usize mib = usize{1} << 20;

} // namespace quarnex::test
