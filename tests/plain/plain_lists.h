// plain/plain_lists.h - one earlier match for each position, told by its definition
//
// The judge of the real match lists: suffixes are compared as they stand, and each length is looked
// at by itself, no shared code.
#pragma once

#include "support/shapes.h"

#include <vector>

namespace quarnex::test {

/// By position: how long its match is, 0 (none) or 3 to 255, and where that was before.
struct plain_lists {
    std::vector<u32> len;
    std::vector<u32> pos;
};

plain_lists plain_match_lists(const bytes& block);

} // namespace quarnex::test
