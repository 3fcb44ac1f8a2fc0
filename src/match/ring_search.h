// match/ring_search.h - search of levels 4 to 7: rings of candidates, walked by age where that pays
//
// search_buckets() with a ring_table finds the same matches whether it walks the candidates in the
// order of the table (walk_in_order) or from the latest to the oldest (walk_latest_first).  In the
// order of the table, positions mostly rise: many candidates replace the best match because they
// are nearer, and each replacement is a mispredicted branch.  From the latest to the oldest, a
// candidate has to be longer to win, and few are: in English text, 4 of 52 candidates per position
// pass the quick test instead of 16.
#pragma once

#include "match/bucket_search.h"

#include <utility>

namespace quarnex {

/// Walks the candidates of a ring from the latest to the oldest.  Blocks have at most max_positions
/// bytes.
///
/// Compiled once and not inlined into the searches of the methods, so that register allocation in
/// these loops doesn't depend on a method's token writer.
struct walk_latest_first {
    /// Positions from here on are stored modulo 2^24, so one could read as an empty entry.
    static constexpr u32 max_positions = ring_table::max_positions;

    [[gnu::always_inline]] static void prefetch(const bucket_array& buckets, const block_text& text,
                                                u32 pos)
    {
        buckets.prefetch_all(text, pos);
    }

    /// Returns the match that walk_in_order::find_best() returns.
    static found_match find_best(const block_text& text, const ring_table& table, const u32* bucket,
                                 u32 pos);

    /// Compares the best match at `pos` with the candidates of pos + Ahead, in the order of the
    /// table: walk_in_order::look_ahead() with a stricter quick test.
    template <u32 Ahead>
    static lookahead_result look_ahead(const block_text& text, const ring_table& table,
                                       const u32* bucket, u32 pos, found_match best);
};

extern template lookahead_result walk_latest_first::look_ahead<1>(const block_text&,
                                                                  const ring_table&, const u32*,
                                                                  u32, found_match);
extern template lookahead_result walk_latest_first::look_ahead<2>(const block_text&,
                                                                  const ring_table&, const u32*,
                                                                  u32, found_match);

/// search_buckets() with a ring_table and the faster walk for its number of candidates.
template <token_writer Writer>
[[nodiscard]] std::optional<Writer> search_rings(const block_text text, search_bits bits,
                                                 scratch& memory, Writer out)
{
    // In rings of 4 candidates, walk_latest_first is no faster.
    if (bits.chain_bits > 2 && text.size <= walk_latest_first::max_positions) {
        return search_buckets<ring_table, Writer, walk_latest_first>(text, bits, memory,
                                                                     std::move(out));
    }
    return search_buckets<ring_table, Writer>(text, bits, memory, std::move(out));
}

} // namespace quarnex
