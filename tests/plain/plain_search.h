// plain/plain_search.h - the hash searches of levels 0 to 7 told in the simplest code
//
// The judge of the real searches: positions are indices, bytes are compared one by one, candidates
// come as lists, no shared code.
#pragma once

#include "support/shapes.h"

#include <vector>

namespace quarnex::test {

/// A decision of an encoder: a literal has length 1 and distance 0.
struct plain_token {
    u32 len;
    u32 dist;
    bool operator==(const plain_token&) const = default;
};

/// What differs between the searches of the methods.
struct plain_rules {
    u32 first_pos;                 // the bytes before it are sent raw
    bool level_0_inserts;          // whether level 0 enters positions inside a match
    bool level_1_is_lazy;          // or greedy, with positions inside a match entered
    u32 pair_start;                // the position that fills the table of level 3 at the start
    u32 longest_dist = 0xFFFFFFFF; // a candidate farther away counts as none
};
inline constexpr plain_rules m1_rules{1, false, false, 0};
inline constexpr plain_rules m2_rules{1, false, false, 0, 1U << 25};
inline constexpr plain_rules m3_rules{1, false, false, 0};
inline constexpr plain_rules m4_rules{1, false, true, 0};
inline constexpr plain_rules m5_rules{2, true, true, 1};

/// What an encoder of `level` 0 to 7 decides from `first_pos` on.  The last match may pass the
/// block's end.  Only levels 4 to 7 read `chain_bits`.
std::vector<plain_token> plain_search(const bytes& block, const plain_rules& rules, u32 level,
                                      u32 hash_bits, u32 chain_bits);

} // namespace quarnex::test
