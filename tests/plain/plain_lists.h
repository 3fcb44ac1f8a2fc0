// plain/plain_lists.h - reference implementation of the match lists of level 8
//
// Follows their definition and shares no code with the real ones, which the tests compare with
// these: suffixes are compared byte by byte, and each length is handled separately.
#pragma once

#include "support/shapes.h"

#include <vector>

namespace quarnex::test {

/// By position: the length of its match, 0 (none) or 3 to 255, and where the match is.
struct plain_lists {
    std::vector<u32> len;
    std::vector<u32> pos;
};

plain_lists plain_match_lists(const bytes& block);

} // namespace quarnex::test
