// support/token_block.h - builds blocks token by token
#pragma once

#include "plain/plain_search.h"

#include <algorithm>

namespace quarnex::test {

/// A block made of raw bytes and tokens, with its tokens.
class token_block {
  public:
    explicit token_block(bytes raw) : data_(std::move(raw)) {}

    token_block& literal(u8 byte)
    {
        data_.push_back(byte);
        tokens_.push_back({1, 0});
        return *this;
    }

    /// Appends random literals up to a block size of `size`.
    token_block& literals_to(usize size, u64 seed = 1)
    {
        random_source random(seed);
        while (data_.size() < size) literal(static_cast<u8>(random.next()));
        return *this;
    }

    token_block& match(u32 len, u32 dist)
    {
        for (u32 i = 0; i < len; ++i) data_.push_back(data_[data_.size() - dist]);
        tokens_.push_back({len, dist});
        return *this;
    }

    const bytes& data() const { return data_; }
    const std::vector<plain_token>& tokens() const { return tokens_; }

  private:
    bytes data_;
    std::vector<plain_token> tokens_;
};

/// Returns `raw_bytes` random bytes followed by random tokens of every valid kind.
inline token_block random_token_block(u64 seed, usize raw_bytes, u32 min_match, int tokens = 3000)
{
    random_source random(seed);
    bytes raw(raw_bytes);
    for (u8& byte : raw) byte = static_cast<u8>(random.next());
    token_block block(std::move(raw));
    for (int i = 0; i < tokens; ++i) {
        if (random.below(3) == 0) {
            block.literal(static_cast<u8>(random.next() >> random.below(8)));
            continue;
        }
        const u32 max_dist =
            std::min(static_cast<u32>(block.data().size()), 1U << random.below(22));
        block.match(min_match + random.below(1U << random.below(9)), 1 + random.below(max_dist));
    }
    return block;
}

} // namespace quarnex::test
