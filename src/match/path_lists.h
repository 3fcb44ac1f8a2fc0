// match/path_lists.h - the match lists of level 8 from the tree of LCP intervals
//
// Walks up the tree of LCP intervals (lcp_tree.h) from each position, in ascending order.  The
// first interval on the path that holds an earlier position yields the nearest of the longest
// matches; the walk then looks for a slightly shorter and much nearer one.  The lists are the same
// as by merging intervals (match_lists.h), in less time if the paths are short.
#pragma once

#include "match/match_lists.h"

namespace quarnex {

inline constexpr tree_options path_list_options{min_listed_match, max_full_interval, false};

/// Lists the matches of a block from its arrays, which were allocated with room for a tree and have
/// match_list_scale.  The lists take over their memory; no other is needed.
match_lists path_match_lists(const block_text& text, suffix_arrays& arrays,
                             const allocator& source);

} // namespace quarnex
