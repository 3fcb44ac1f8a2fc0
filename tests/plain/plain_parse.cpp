#include "plain/plain_parse.h"

#include "plain/plain_lists.h"
#include "plain/plain_trie.h"

#include <algorithm>
#include <utility>

namespace quarnex::test {
namespace {

constexpr u32 first_window = 512;
constexpr u32 max_window_size = 4096;
constexpr u32 nodes_past_window = 2048;
constexpr u32 not_reached = 0xFFFFFFFF;

/// The cheapest known path to a position: its cost and its last token.
struct parse_node {
    u32 cost;
    u32 from;
    u32 dist;
};

struct parser {
    const bytes& block;
    const plain_rules& rules;
    u32 min_match;
    const plain_parse_hooks& hooks;

    u32 size() const { return static_cast<u32>(block.size()); }

    /// Calls `parse(start, width)`, which returns where its tokens end, window by window.
    template <class Parse>
    void windows(Parse parse) const
    {
        u32 start = rules.first_pos;
        for (u32 width = first_window; start < size(); width = std::min(2 * width, max_window_size))
            start = parse(start, std::min(width, size() - start));
    }

    u32 backward(plain_lists& lists, u32 start, u32 width) const;
    u32 write_listed(const plain_lists& lists, u32 start, u32 width) const;

    u32 forward(plain_trie& trie, u32 start, u32 width) const;
    u32 relax_matches(const plain_trie& trie, std::vector<parse_node>& nodes, u32 start,
                      u32 at) const;
    u32 write_path(const std::vector<parse_node>& nodes, u32 start) const;
};

u32 parser::backward(plain_lists& lists, u32 start, u32 width) const
{
    std::vector<u32> cost(width + 1, 0); // the last position is free
    for (u32 i = width - 1; i-- > 0;) {
        const u32 pos = start + i;
        const u32 dist = pos - lists.pos[pos];
        u32& len = lists.len[pos];
        if (dist > rules.max_dist) len = 0;
        cost[i] = cost[i + 1] + hooks.literal_price(pos);
        if (len == 0) continue;
        const u32 after = i + len < width ? cost[i + len] : 0;
        const u32 match = hooks.match_price(pos, len, dist) + after;
        if (cost[i] < match)
            len = 0;
        else
            cost[i] = match;
    }
    return write_listed(lists, start, width);
}

u32 parser::write_listed(const plain_lists& lists, u32 start, u32 width) const
{
    const u32 end = start + width;
    u32 pos = start;
    while (pos < end) {
        plain_token token{1, 0};
        if (lists.len[pos] != 0 && pos + 1 != end) token = {lists.len[pos], pos - lists.pos[pos]};
        hooks.write(pos, token);
        pos += token.len;
    }
    return pos;
}

void relax(std::vector<parse_node>& nodes, u32 at, u32 len, u32 dist, u32 price)
{
    const u32 cost = nodes[at].cost + price;
    if (static_cast<i32>(cost) < static_cast<i32>(nodes[at + len].cost))
        nodes[at + len] = {cost, at, dist};
}

/// Returns the longest match length.
u32 parser::relax_matches(const plain_trie& trie, std::vector<parse_node>& nodes, u32 start,
                          u32 at) const
{
    const u32 pos = start + at;
    const u32 limit = std::min(static_cast<u32>(nodes.size()) - 1 - at, size() - pos);
    u32 best = min_match - 1;
    for (const plain_trie_record& record : trie.matches(pos)) {
        const u32 dist = pos - record.pos;
        // After a window whose tokens ended early, the trie holds later positions too.
        if (record.pos >= pos || dist > rules.max_dist) continue;
        u32 len = std::min(record.len, limit);
        while (len < limit && block[record.pos + len] == block[pos + len]) ++len;
        for (; best < len; ++best)
            relax(nodes, at, best + 1, dist, hooks.match_price(pos, best + 1, dist));
    }
    return best;
}

u32 parser::forward(plain_trie& trie, u32 start, u32 width) const
{
    std::vector<parse_node> nodes{{0, 0, not_reached}};
    for (u32 i = 0; i < width + nodes_past_window; ++i)
        nodes.push_back({0x3FFFFFFF, i, not_reached});
    u32 search_at = 0; // positions inside a very long match are skipped
    for (u32 i = 0; i < width; ++i) {
        if (i >= search_at) {
            relax(nodes, i, 1, 0, hooks.literal_price(start + i));
            const u32 best = relax_matches(trie, nodes, start, i);
            if (best > 256) search_at = i + best / 2;
        }
        trie.insert(start + i);
    }
    return write_path(nodes, start);
}

/// Writes the path to the farthest node reached, whatever it costs.
u32 parser::write_path(const std::vector<parse_node>& nodes, u32 start) const
{
    u32 end = static_cast<u32>(nodes.size()) - 1;
    while (nodes[end].dist == not_reached) --end;
    std::vector<plain_token> tokens;
    for (u32 at = end; at > 0; at = nodes[at].from) {
        const u32 len = at - nodes[at].from;
        tokens.push_back(len < min_match ? plain_token{1, 0} : plain_token{len, nodes[at].dist});
    }
    std::reverse(tokens.begin(), tokens.end());
    u32 pos = start;
    for (const plain_token& token : tokens) {
        hooks.write(pos, token);
        pos += token.len;
    }
    return pos;
}

} // namespace

void plain_parse(const bytes& block, const plain_rules& rules, u32 level, u32 min_match,
                 const plain_parse_hooks& hooks)
{
    const parser parser{block, rules, min_match, hooks};
    if (level == 8) {
        plain_lists lists = plain_match_lists(block);
        parser.windows([&](u32 pos, u32 width) { return parser.backward(lists, pos, width); });
        return;
    }
    plain_trie trie(block);
    for (u32 pos = 1; pos < rules.first_pos; ++pos) trie.insert(pos);
    parser.windows([&](u32 pos, u32 width) { return parser.forward(trie, pos, width); });
}

std::vector<plain_token> plain_parse_tokens(const bytes& block, const plain_rules& rules, u32 level,
                                            u32 literal_price, plain_match_price match_price)
{
    std::vector<plain_token> tokens;
    plain_parse(block, rules, level, 3,
                {[=](u32 /*pos*/) { return literal_price; }, std::move(match_price),
                 [&](u32 /*pos*/, const plain_token& token) { tokens.push_back(token); }});
    return tokens;
}

} // namespace quarnex::test
