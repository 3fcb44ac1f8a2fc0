// support/token_recorder.h - records the tokens that a search chooses
#pragma once

#include "common/scratch.h"
#include "match/concepts.h"
#include "match/text.h"
#include "plain/plain_search.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>

namespace quarnex::test {

/// A token writer that records its tokens and is full after `full_at` of them.
template <u32 FirstPos, u32 MinMatch = 4>
struct token_recorder {
    static constexpr u32 first_pos = FirstPos;
    static constexpr u32 min_match = MinMatch;
    usize full_at = SIZE_MAX;
    std::vector<plain_token> tokens{};
    u32 next_pos = FirstPos;

    bool full() const { return tokens.size() >= full_at; }
    void literal(u32 pos)
    {
        EXPECT_EQ(pos, next_pos++);
        tokens.push_back({1, 0});
    }
    void match(u32 pos, u32 len, u32 dist)
    {
        EXPECT_EQ(pos, next_pos);
        next_pos += len;
        tokens.push_back({len, dist});
    }
};
static_assert(token_writer<token_recorder<1>>);

template <u32 FirstPos>
using recorded_search = std::optional<token_recorder<FirstPos>> (*)(block_text, search_bits,
                                                                    scratch&,
                                                                    token_recorder<FirstPos>);

/// Returns the tokens of a block, in a buffer that ends where the search may read last.
template <u32 FirstPos>
std::vector<plain_token> tokens_of(recorded_search<FirstPos> search, const bytes& block,
                                   search_bits bits, scratch& memory, usize full_at = SIZE_MAX)
{
    bytes padded(block.size() + search_reads_past);
    std::copy(block.begin(), block.end(), padded.begin());
    const block_text text{padded.data(), static_cast<u32>(block.size())};
    return search(text, bits, memory, {full_at}).value().tokens;
}

/// Returns the tokens of a block, with a new scratch.
template <u32 FirstPos>
std::vector<plain_token> tokens_of(recorded_search<FirstPos> search, const bytes& block,
                                   search_bits bits, usize full_at = SIZE_MAX)
{
    scratch memory(system_allocator);
    return tokens_of<FirstPos>(search, block, bits, memory, full_at);
}

/// A run of literals, for spelled_out().
constexpr plain_token literals(u32 count)
{
    return {count, 0};
}

/// Returns the tokens with each run of literals expanded.
inline std::vector<plain_token> spelled_out(std::initializer_list<plain_token> rows)
{
    std::vector<plain_token> tokens;
    for (const plain_token& row : rows) {
        if (row.dist == 0)
            tokens.insert(tokens.end(), row.len, {1, 0});
        else
            tokens.push_back(row);
    }
    return tokens;
}

/// Prints a token in test failures.
inline void PrintTo(const plain_token& token, std::ostream* out)
{
    *out << token.len << " from " << token.dist;
}

} // namespace quarnex::test
