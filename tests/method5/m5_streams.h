// method5/m5_streams.h - blocks built from tokens and streams built from bits, for the tests of
// method 5
#pragma once

#include "method5/m5_learn.h"
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

/// Encodes one step at once.
inline void encode_step(range_encoder& encoder, m5_step step)
{
    encoder = m5_encode_steps(encoder, encoder.out, &step, &step + 1);
}

/// Encodes one bit by its model.
inline void encode_bit(range_encoder& encoder, m5_prob_pair& pair, u32 bit)
{
    encode_step(encoder, m5_bit_step(pair.mean(), bit));
    pair.update(bit);
}

/// Encodes `value`, a number of `width` bits, through the bit tree of pairs 1 to 2^width - 1.
inline void encode_tree(range_encoder& encoder, m5_prob_pair* tree, u32 value, u32 width)
{
    u32 index = 1;
    for (u32 place = width; place-- != 0;) {
        const u32 bit = value >> place & 1;
        encode_bit(encoder, tree[index], bit);
        index = 2 * index + bit;
    }
}

} // namespace quarnex::test
