// method5/m5_streams.h - blocks built from tokens, for the tests of method 5
#pragma once

#include "plain/m5_plain.h"
#include "support/token_block.h"

namespace quarnex::test {

/// Two raw bytes and tokens, with the block they make.
struct m5_block : token_block {
    m5_block() : token_block({'a', 'b'}) {}
    m5_block(token_block block) : token_block(std::move(block)) {}

    bytes stream(u32 min_match = 4) const { return m5_plain_stream(data(), tokens(), min_match); }
};

/// Tokens of every kind that an encoder could have chosen.
inline m5_block random_m5_block(u64 seed, u32 min_match, int tokens = 3000)
{
    return random_token_block(seed, 2, min_match, tokens);
}

} // namespace quarnex::test
