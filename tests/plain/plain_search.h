// plain/plain_search.h - reference implementation of the hash searches of levels 0 to 7
//
// Written for clarity and sharing no code with the real searches, whose tokens the tests compare
// with these: bytes are compared one by one, candidates are lists.
#pragma once

#include "support/shapes.h"

#include <vector>

namespace quarnex::test {

/// A token of a parse: a literal has length 1 and distance 0.
struct plain_token {
    u32 len;
    u32 dist;
    bool operator==(const plain_token&) const = default;
};

/// Parameters in which the searches of the methods differ.
struct plain_rules {
    u32 first_pos;             // the bytes before it are stored raw
    bool level_0_inserts;      // level 0 inserts positions inside a match
    bool level_1_is_lazy;      // otherwise greedy, inserting positions inside a match
    u32 pair_start;            // initial value of the entries at level 3
    u32 max_dist = 0xFFFFFFFF; // candidates farther back are rejected
};
inline constexpr plain_rules m1_rules{1, false, false, 0};
inline constexpr plain_rules m2_rules{1, false, false, 0, 1U << 25};
inline constexpr plain_rules m3_rules{1, false, false, 0};
inline constexpr plain_rules m4_rules{1, false, true, 0};
inline constexpr plain_rules m5_rules{2, true, true, 1};

/// The parse of an encoder of `level` 0 to 7, from `first_pos` on.  The last match can extend past
/// the block's end.  Only levels 4 to 7 use `chain_bits`.
std::vector<plain_token> plain_search(const bytes& block, const plain_rules& rules, u32 level,
                                      u32 hash_bits, u32 chain_bits);

} // namespace quarnex::test
