// method4/m4_streams.h - blocks built from tokens, for the tests of method 4
#pragma once

#include "plain/m4_plain.h"
#include "support/token_block.h"

namespace quarnex::test {

/// A raw byte and tokens, with the block they make.
struct m4_block : token_block {
    m4_block() : token_block({'a'}) {}
    m4_block(token_block block) : token_block(std::move(block)) {}

    bytes stream(u32 lit_ctx_bits = 0, u32 min_match = 4) const
    {
        return m4_plain_stream(data(), tokens(), min_match, lit_ctx_bits);
    }
};

} // namespace quarnex::test
