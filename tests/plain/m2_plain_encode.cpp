#include "plain/m2_plain.h"
#include "plain/plain_parse.h"

namespace quarnex::test {
namespace {

// Prices of levels 8 and 9, in bits; literal runs are not considered.
constexpr u32 literal_price = 9;

u32 match_price(u32 /*pos*/, u32 len, u32 dist)
{
    const u32 code = len < 15 ? len - 1 : len + 1;
    u32 log = 0;
    while (code >> log > 1) ++log;
    return 2 * log + 1 + 5 + m2_plain_extra_bits(m2_plain_class_of(dist));
}

} // namespace

bytes m2_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits)
{
    if (block.empty()) return block;
    const bool priced = level >= 8;
    const auto tokens = priced
                            ? plain_parse_tokens(block, m2_rules, level, literal_price, match_price)
                            : plain_search(block, m2_rules, level, hash_bits, chain_bits);
    const bytes stream =
        m2_plain_stream(block, tokens, level, priced ? m2_plain_shortest_run : m2_plain_no_runs);
    return stream.size() < block.size() ? stream : block;
}

} // namespace quarnex::test
