// plain/plain_parse.h - the priced parse of levels 8 and 9 told in the simplest code
//
// The judge of the real parse: prices come from functions, all steps of a window stand in a list,
// no shared code.
#pragma once

#include "plain/plain_search.h"

#include <functional>

namespace quarnex::test {

using plain_match_price = std::function<u32(u32 pos, u32 len, u32 dist)>;

/// What the parse asks of a method.  Sums of prices wrap.
struct plain_parse_hooks {
    std::function<u32(u32 pos)> literal_price;
    plain_match_price match_price;
    /// Gets the tokens in order, those of a window before the next one is priced.
    std::function<void(u32 pos, const plain_token& token)> write;
};

/// The parse of level 8 or 9 from `first_pos` of the rules on.
void plain_parse(const bytes& block, const plain_rules& rules, u32 level, u32 min_match,
                 const plain_parse_hooks& hooks);

/// The tokens of such a parse where a match of 3 bytes is the shortest and all literals cost the
/// same, now and later.
std::vector<plain_token> plain_parse_tokens(const bytes& block, const plain_rules& rules, u32 level,
                                            u32 literal_price, plain_match_price match_price);

} // namespace quarnex::test
