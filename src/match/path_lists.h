// match/path_lists.h - the match lists of level 8 from the tree of LCP intervals
//
// Walks up the tree of LCP intervals (lcp_tree.h) from each position in the order of the text.  The
// latest position of the first interval that has one is the nearest of the longest matches; the
// walk then looks for a shorter and much nearer one.  Gives what merging the intervals gives
// (match_lists.h), in less time if the paths are short.
#pragma once

#include "match/match_lists.h"

namespace quarnex {

inline constexpr tree_options path_list_options{min_listed_match, max_full_interval, false};

/// Lists the matches of a block, from its suffix array and its LCP array, by match_list_scale, with
/// room for a tree.  The lists take over the memory of the arrays; no other is needed.
match_lists path_match_lists(const block_text& text, suffix_arrays& arrays,
                             const allocator& source);

} // namespace quarnex
