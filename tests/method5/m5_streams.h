// method5/m5_streams.h - blocks told token by token, for the tests of method 5
#pragma once

#include "method5/m5_model.h"
#include "plain/m5_plain.h"

#include <algorithm>

namespace quarnex::test {

/// Two raw bytes and some tokens, with the block that they make.
class m5_block {
  public:
    explicit m5_block(bytes raw = {'a', 'b'}) : data_(std::move(raw)) {}

    m5_block& literal(u8 byte)
    {
        data_.push_back(byte);
        tokens_.push_back({1, 0});
        return *this;
    }

    /// Literals up to a size, without any order.
    m5_block& literals_to(usize size, u64 seed = 1)
    {
        random_source random(seed);
        while (data_.size() < size) literal(static_cast<u8>(random.next()));
        return *this;
    }

    m5_block& match(u32 len, u32 dist)
    {
        for (u32 i = 0; i < len; ++i) data_.push_back(data_[data_.size() - dist]);
        tokens_.push_back({len, dist});
        return *this;
    }

    const bytes& data() const { return data_; }
    const std::vector<plain_token>& tokens() const { return tokens_; }
    bytes stream(u32 min_match = 4) const { return m5_plain_stream(data_, tokens_, min_match); }

  private:
    bytes data_;
    std::vector<plain_token> tokens_;
};

/// Tokens of every kind that an encoder could have chosen.
inline m5_block random_m5_block(u64 seed, u32 min_match, int tokens = 3000)
{
    random_source random(seed);
    m5_block block({static_cast<u8>(random.next()), static_cast<u8>(random.next())});
    for (int i = 0; i < tokens; ++i) {
        if (random.below(3) == 0) {
            block.literal(static_cast<u8>(random.next() >> random.below(8)));
            continue;
        }
        const u32 reach = std::min(static_cast<u32>(block.data().size()), 1U << random.below(22));
        block.match(min_match + random.below(1U << random.below(9)), 1 + random.below(reach));
    }
    return block;
}

} // namespace quarnex::test
