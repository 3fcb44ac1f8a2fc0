// match/cost_parse.h - optimal parsing of levels 8 and 9: tokens chosen by their price
//
// Algorithm: the parse is a shortest path through the positions of a window, with tokens as edges
// and their prices as lengths (Schuegraf and Heaps 1974; Storer and Szymanski 1982), found by
// dynamic programming.  Level 8 goes backward, with one match per position (match_lists.h), taken
// whole or not at all.  Level 9 goes forward and relaxes every length of every match
// (nearest_search.h), many lengths at once (parse_nodes.h).
//
// The textbook form plans the whole block, which needs prices that do not change.  Prices of
// adaptive coders depend on the tokens before.  So the block is cut into windows: prices are frozen
// at a window's start, and its tokens are written before the next window is planned.  Windows start
// short, while the coder learns most, and grow to 4096 positions, which also bounds memory.
//
// Time: level 8 O(n) after the match lists; level 9 one relaxation per position and match length,
// up to 2048 positions past the window's end.  Half of each match above 256 bytes is not searched.
// Stack: 16 KiB (level 8) or 80 KiB (level 9), and the prices (up to 60 KiB).  Memory: the match
// lists or the search.
#pragma once

#include "match/concepts.h"
#include "match/match_lists.h"
#include "match/nearest_search.h"
#include "match/parse_nodes.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <optional>
#include <utility>

namespace quarnex {

/// Prices of tokens, in a unit of the method's choice.  Sums of prices are taken modulo 2^32.
///
/// start_window() freezes the prices at the coder's current state.  literal() returns the price of
/// the literal at a position.  matches() returns a function that maps the length of a match at this
/// position and distance to its price, and has a run(): for a length below tabulated_lengths, it
/// returns the prices of this length and of none, some or all longer ones below tabulated_lengths;
/// for any other length, an empty run.
template <class P>
concept price_list = requires(P prices, const P& const_prices, u32 pos, u32 len, u32 dist)
{
    prices.start_window();
    requires std::same_as<decltype(const_prices.literal(pos)), u32>;
    requires std::same_as<decltype(prices.matches(pos, dist)(len)), u32>;
    requires std::same_as<decltype(prices.matches(pos, dist).run(len)), price_run>;
};

/// The lengths of the windows of a block: 512, doubled up to max_window.
class window_lengths {
  public:
    /// Length of the next window, with `left` positions left in the block.
    u32 next(u32 left)
    {
        if (length_ < max_window) length_ *= 2;
        return std::min(length_, left);
    }

  private:
    u32 length_ = 256;
};

/// The backward parse of a block: one match per position, taken whole or not at all.
template <price_list Prices, token_writer Writer>
class backward_parser {
    static_assert(Writer::min_match <= min_listed_match);

  public:
    backward_parser(const block_text& text, match_lists lists, Prices& prices)
        : text_(text), lists_(std::move(lists)), prices_(prices)
    {
    }

    /// Finds the cheapest tokens for the `length` positions from `start` on.  Deletes every match
    /// that is too far away or costs more than a literal followed by the rest of the path.
    void plan(u32 start, u32 length)
    {
        assert(length >= 1 && length <= max_window);
        u8* const mlen = lists_.mlen.get() + start;
        const u32* const mpos = lists_.mpos.get() + start;
        prices_.start_window();
        // The last position costs nothing: it is always a literal.
        costs_[length] = costs_[length - 1] = 0;
        for (u32 i = length - 1; i-- != 0;) {
            const u32 pos = start + i;
            const u32 literal = costs_[i + 1] + prices_.literal(pos);
            costs_[i] = literal;
            const u32 len = mlen[i], dist = pos - mpos[i];
            if (len == 0) continue;
            if (dist <= text_.max_dist) {
                u32 match = prices_.matches(pos, dist)(len);
                if (i + len < length) match += costs_[i + len];
                if (literal >= match) {
                    costs_[i] = match;
                    continue;
                }
            }
            mlen[i] = 0;
        }
    }

    /// Writes the planned tokens.  If a token starts at the last position, it is a literal.
    /// Returns the number of positions covered.
    u32 write(u32 start, u32 length, Writer& out) const
    {
        u32 i = 0;
        while (i < length && !out.full()) {
            const u32 pos = start + i;
            const u32 len = lists_.mlen[pos];
            if (len != 0 && i != length - 1) {
                out.match(pos, len, pos - lists_.mpos[pos]);
                i += len;
            } else {
                out.literal(pos);
                ++i;
            }
        }
        return i;
    }

  private:
    block_text text_;
    match_lists lists_;
    Prices& prices_;
    std::array<u32, max_window + 1> costs_; // by position: of the tokens to the window's end
};

/// In a match longer than this, the positions of the first half are inserted but not searched.
inline constexpr u32 long_match = 256;

/// The forward parse of a block: every length of every match found.
template <price_list Prices, token_writer Writer>
class forward_parser {
  public:
    forward_parser(const block_text& text, const allocator& source, Prices& prices)
        : text_(text), prices_(prices), search_(text, Writer::min_match, source)
    {
        for (u32 pos = 1; pos < std::min(Writer::first_pos, text.size); ++pos) {
            search_.insert(pos);
        }
    }

    /// Finds shortest paths to the `length` positions from `start` on, and to those past them that
    /// matches reach.
    void plan(u32 start, u32 length)
    {
        assert(length >= 1 && length <= max_window);
        const u32 last = length + window_overhang;
        nodes_.clear(last);
        prices_.start_window();
        for (u32 i = 0; i < length; ++i) {
            const u32 pos = start + i;
            nodes_.relax(i, i + 1, prices_.literal(pos), 0);
            const u32 longest = relax_matches(pos, i, last - i);
            if (longest <= long_match) continue;
            const u32 skipped = std::min(longest / 2, length - i) - 1;
            search_.insert(pos + 1, skipped);
            i += skipped;
        }
    }

    /// Writes the tokens of the path to the farthest position reached from a window of `length`
    /// positions, whatever it costs.  Returns the number of positions covered.
    u32 write(u32 start, u32 length, Writer& out)
    {
        const u32 end = nodes_.reverse_path(length + window_overhang);
        u32 i = 0;
        while (i < end && !out.full()) {
            const u32 next = nodes_.prev[i];
            if (next - i >= Writer::min_match) {
                out.match(start + i, next - i, nodes_.dist[i]);
                i = next;
            } else {
                out.literal(start + i);
                ++i;
            }
        }
        return i;
    }

  private:
    /// Relaxes the matches at `pos`, node `start` of the window, up to `room` bytes.  Prices each
    /// length once, with the first record that has it.  Returns the longest length.
    u32 relax_matches(u32 pos, u32 start, u32 room)
    {
        const u32 limit = std::min(room, text_.size - pos);
        u32 longest = Writer::min_match - 1;
        for (const trie_record& found : search_.find(pos)) {
            const u32 dist = pos - found.pos;
            // After a path that ended inside its window, later positions are found too.
            if (found.pos >= pos || dist > text_.max_dist) continue;
            u32 len = std::min(found.length, limit);
            if (len >= search_.exact_lengths())
                len +=
                    equal_bytes(text_.data + pos + len, text_.data + found.pos + len, limit - len);
            if (len <= longest) continue;
            auto price = prices_.matches(pos, dist);
            if (len - longest >= parse_nodes::vector_nodes) {
                relax_lengths(start, longest + 1, len, price, dist);
                longest = len;
                continue;
            }
            while (longest < len) {
                ++longest;
                nodes_.relax(start, start + longest, price(longest), dist);
            }
        }
        return longest;
    }

    /// Relaxes a match at node `start` in all lengths from `first` to `last`.
    template <class Price>
    void relax_lengths(u32 start, u32 first, u32 last, const Price& price, u32 dist)
    {
        for (u32 len = first; len <= last;) {
            price_run run = price.run(len);
            if (run.count == 0) {
                nodes_.relax(start, start + len, price(len), dist);
                ++len;
                continue;
            }
            run.count = std::min(run.count, last + 1 - len);
            nodes_.relax(start, start + len, run, dist);
            len += run.count;
        }
    }

    block_text text_;
    Prices& prices_;
    nearest_search search_;
    parse_nodes nodes_;
};

/// Plans and writes a block window by window.  Stops early when `out` is full.
template <class Parser, token_writer Writer>
void parse_windows(const block_text& text, Parser& parser, Writer& out)
{
    window_lengths windows;
    for (u32 start = Writer::first_pos; start < text.size && !out.full();) {
        const u32 length = windows.next(text.size - start);
        parser.plan(start, length);
        start += parser.write(start, length, out);
    }
}

/// Parses a block backward, by `prices`, with the matches of the match lists.  Returns `out`, or
/// nothing without memory for the lists.
template <price_list Prices, token_writer Writer>
[[nodiscard]] std::optional<Writer> parse_backward(const block_text& text, const allocator& source,
                                                   Prices& prices, Writer out)
{
    std::optional<match_lists> lists = find_match_lists(text, source);
    if (!lists) return {};
    backward_parser<Prices, Writer> parser(text, std::move(*lists), prices);
    parse_windows(text, parser, out);
    return out;
}

/// Parses a block forward, by `prices`, with the matches of a nearest_search.  Returns `out`.
/// Without memory for all positions, fewer matches are found.
template <price_list Prices, token_writer Writer>
[[nodiscard]] Writer parse_forward(const block_text& text, const allocator& source, Prices& prices,
                                   Writer out)
{
    forward_parser<Prices, Writer> parser(text, source, prices);
    parse_windows(text, parser, out);
    return out;
}

} // namespace quarnex
