// match/cost_parse.h - the parses of levels 8 and 9, which choose tokens by their price
//
// A block is cut into windows.  The tokens of a window are planned with the prices that hold at its
// start and written before the next one is planned, so that an adaptive method prices by what it
// has learned so far.  Windows are short at first, when it learns most.
#pragma once

#include "match/concepts.h"
#include "match/match_lists.h"
#include "match/trie.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace quarnex {

/// What tokens cost, in a unit of the method's own.  Prices are sums modulo 2^32.
///
/// start_window() takes over what has been learned.  literal() is the price of the literal at a
/// position; matches() gives a function for the price of a match there by its length, at one
/// distance.
template <class P>
concept price_list = requires(P prices, const P& so_far, u32 pos, u32 len, u32 dist)
{
    prices.start_window();
    requires std::same_as<decltype(so_far.literal(pos)), u32>;
    requires std::same_as<decltype(prices.matches(pos, dist)(len)), u32>;
};

inline constexpr u32 longest_window = 4096;

/// The lengths of windows, one after the other.
class window_lengths {
  public:
    /// The next one, of which `left` positions of the block are left.
    u32 next(u32 left)
    {
        if (length_ < longest_window) length_ *= 2;
        return std::min(length_, left);
    }

  private:
    u32 length_ = 256;
};

/// The backward parse of a block: each position has one match, which is taken whole or not at all.
template <price_list Prices, token_writer Writer>
class backward_parser {
  public:
    backward_parser(const block_text& text, match_lists lists, Prices prices)
        : text_(text), lists_(std::move(lists)), prices_(std::move(prices))
    {
    }

    /// Finds the cheapest way through the `length` positions from `start` on, and forgets the
    /// matches that are dearer than a literal.
    void plan(u32 start, u32 length)
    {
        u8* const mlen = lists_.mlen.get() + start;
        const u32* const mpos = lists_.mpos.get() + start;
        prices_.start_window();
        // The last position costs nothing: it has no choice.
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

    /// Writes the planned tokens.  The last position, if a token starts there, is a literal.
    /// Returns how many positions they cover.
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
    Prices prices_;
    std::array<u32, longest_window + 1> costs_; // from a position to the window's end
};

/// A match may pass the window's end by so many positions.
inline constexpr u32 window_overhang = 2048;

/// Behind a match longer than this, half of its positions are not looked at.
inline constexpr u32 long_match = 256;

/// The cheapest ways to the positions of a window, and from there on.
struct parse_nodes {
    static constexpr u32 most = longest_window + window_overhang + 1;
    static constexpr i32 far_away = 0x3FFFFFFF;
    static constexpr u32 unreached = UINT32_MAX;

    std::array<i32, most> cost; // of the cheapest way from the window's start
    std::array<u32, most> prev; // where its last token starts
    std::array<u32, most> dist; // the distance of its last token, 0 for a literal, or unreached

    /// Forgets all ways, to the start and `last` positions behind it.
    void clear(u32 last)
    {
        for (u32 k = 1; k <= last; ++k) prev[k] = k - 1;
        std::fill_n(cost.begin(), last + 1, far_away);
        std::fill_n(dist.begin(), last + 1, unreached);
        cost[0] = 0;
        prev[0] = 0;
    }

    /// Takes the way to `to` by the token from `from` if it is cheaper.
    void relax(u32 from, u32 to, u32 price, u32 distance)
    {
        const auto sum = static_cast<i32>(static_cast<u32>(cost[from]) + price);
        const bool cheaper = sum < cost[to];
        cost[to] = cheaper ? sum : cost[to];
        prev[to] = cheaper ? from : prev[to];
        dist[to] = cheaper ? distance : dist[to];
    }

    /// Turns the way to the farthest position around: for each position on it, `prev` is the one
    /// behind its token and `dist` the distance of that.  Returns where the way ends.
    u32 trace(u32 last)
    {
        u32 end = last;
        while (dist[end] == unreached) --end;
        u32 next = end;
        u32 token_dist = dist[end];
        for (u32 at = prev[end]; next != 0;) {
            const u32 before = prev[at];
            prev[at] = next;
            next = at;
            at = before;
            std::swap(dist[next], token_dist);
        }
        return end;
    }
};

/// The forward parse of a block.
template <price_list Prices, token_writer Writer>
class forward_parser {
  public:
    forward_parser(const block_text& text, const allocator& source, Prices prices)
        : text_(text), prices_(std::move(prices)), earlier_(text, source)
    {
        for (u32 pos = 1; pos < std::min(Writer::first_pos, text.size); ++pos) {
            earlier_.trie_insert(pos);
        }
    }

    /// Finds the cheapest ways to the `length` positions from `start` on, and to those behind them
    /// that matches reach.
    void plan(u32 start, u32 length)
    {
        const u32 last = length + window_overhang;
        nodes_.clear(last);
        prices_.start_window();
        for (u32 i = 0; i < length; ++i) {
            const u32 pos = start + i;
            nodes_.relax(i, i + 1, prices_.literal(pos), 0);
            const u32 longest = relax_matches(pos, i, last - i);
            if (longest <= long_match) continue;
            const u32 passed = std::min(longest / 2, length - i) - 1;
            earlier_.trie_insert(pos + 1, passed);
            i += passed;
        }
    }

    /// Writes the tokens of the way to the farthest position that was reached from a window of
    /// `length`, however dear it is.  Returns how many positions they cover.
    u32 write(u32 start, u32 length, Writer& out)
    {
        const u32 end = nodes_.trace(length + window_overhang);
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
    /// Tries the matches at `pos`, which is `from` in the window, up to `room` bytes.  Each length
    /// is priced once, at the nearest candidate that has it.  Returns the longest.
    u32 relax_matches(u32 pos, u32 from, u32 room)
    {
        const u32 limit = std::min(room, text_.size - pos);
        u32 longest = Writer::min_match - 1;
        const u32 count = earlier_.trie_matches(pos, records_);
        for (u32 k = 0; k < count; ++k) {
            const trie_record& found = records_[k];
            const u32 dist = pos - found.pos;
            // If a window ended early, positions from its end on have been entered already.
            if (found.pos >= pos || dist > text_.max_dist) continue;
            u32 len = std::min(found.length, limit);
            len += equal_bytes(text_.data + pos + len, text_.data + found.pos + len, limit - len);
            if (len <= longest) continue;
            const auto price = prices_.matches(pos, dist);
            while (longest < len) {
                ++longest;
                nodes_.relax(from, from + longest, price(longest), dist);
            }
        }
        return longest;
    }

    block_text text_;
    Prices prices_;
    trie earlier_;
    parse_nodes nodes_;
    trie_records records_;
};

/// Plans and writes a block by windows.  Stops early when `out` is full.
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

/// Writes a block with the matches of the match lists that its prices choose.  Returns `out`, or
/// nothing without memory for the lists.
template <price_list Prices, token_writer Writer>
[[nodiscard]] std::optional<Writer> parse_backward(const block_text& text, const allocator& source,
                                                   Prices prices, Writer out)
{
    std::optional<match_lists> lists = find_match_lists(text, source);
    if (!lists) return {};
    backward_parser<Prices, Writer> parser(text, std::move(*lists), std::move(prices));
    parse_windows(text, parser, out);
    return out;
}

/// Writes a block with the matches of the trie that its prices choose.  Returns `out`.
template <price_list Prices, token_writer Writer>
[[nodiscard]] Writer parse_forward(const block_text& text, const allocator& source, Prices prices,
                                   Writer out)
{
    forward_parser<Prices, Writer> parser(text, source, std::move(prices));
    parse_windows(text, parser, out);
    return out;
}

} // namespace quarnex
