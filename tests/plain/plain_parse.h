// plain/plain_parse.h - reference implementation of the optimal parsing of levels 8 and 9
//
// Written for clarity and sharing no code with the real parse, whose tokens the tests compare with
// these: prices are functions, the nodes of a window are one list.
#pragma once

#include "plain/plain_search.h"

#include <functional>

namespace quarnex::test {

using plain_match_price = std::function<u32(u32 pos, u32 len, u32 dist)>;

/// The callbacks of a parse.  Sums of prices wrap.
struct plain_parse_hooks {
    std::function<u32(u32 pos)> literal_price;
    plain_match_price match_price;
    /// Receives the tokens in order, those of a window before the next one is priced.
    std::function<void(u32 pos, const plain_token& token)> write;
};

/// Runs the parse of level 8 or 9 from the rules' `first_pos` on.
void plain_parse(const bytes& block, const plain_rules& rules, u32 level, u32 min_match,
                 const plain_parse_hooks& hooks);

/// The tokens of such a parse with a minimum match of 3 bytes, and one fixed price for literals.
std::vector<plain_token> plain_parse_tokens(const bytes& block, const plain_rules& rules, u32 level,
                                            u32 literal_price, plain_match_price match_price);

} // namespace quarnex::test
