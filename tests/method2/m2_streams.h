// method2/m2_streams.h - streams of method 2 built token by token, with the block they decode to
#pragma once

#include "plain/m2_plain.h"

#include <algorithm>

namespace quarnex::test {

/// A stream of `level` that starts with an 'a', and its block.
class m2_block {
  public:
    explicit m2_block(u32 level) : writer_('a', level) {}

    m2_block& literal(u8 byte)
    {
        data_.push_back(byte);
        writer_.literal(byte);
        return end_token();
    }

    /// Adds random literals.
    m2_block& literals(u32 count)
    {
        for (; count != 0; --count) literal(any_byte());
        return *this;
    }

    m2_block& match(u32 len, u32 dist)
    {
        repeat(len, dist);
        writer_.match(len, dist);
        return end_token();
    }

    m2_block& match_in_class(u32 len, u32 dist_class, u32 extra)
    {
        repeat(len, m2_plain_first_dist(dist_class) + extra);
        writer_.match_in_class(len, dist_class, extra);
        return end_token();
    }

    m2_block& byte_run(u8 byte, u32 count)
    {
        data_.insert(data_.end(), count, byte);
        writer_.byte_run(byte, count);
        return end_token();
    }

    m2_block& literal_run(u32 count)
    {
        bytes raw(count);
        for (u8& byte : raw) byte = any_byte();
        data_.insert(data_.end(), raw.begin(), raw.end());
        writer_.literal_run(raw);
        return end_token();
    }

    u32 level() const { return writer_.level; }
    const bytes& data() const { return data_; }
    u32 size() const { return static_cast<u32>(data_.size()); }
    /// The stream without the end token.
    const m2_plain_writer& writer() const { return writer_; }
    bytes stream() const { return m2_plain_writer(writer_).end().out; }
    usize stream_bits() const { return 8 * writer_.out.size() - writer_.free_bits; }
    /// Returns the size of the block after the last token that the first `bits` bits hold whole.
    usize size_within(usize bits) const
    {
        const auto next = std::find_if(ends_.begin(), ends_.end(),
                                       [&](const token_end& end) { return end.bits > bits; });
        return next == ends_.begin() ? 1 : next[-1].size;
    }

  private:
    struct token_end {
        usize bits; // of the stream up to there
        usize size; // of the block
    };

    m2_block& end_token()
    {
        ends_.push_back({stream_bits(), data_.size()});
        return *this;
    }

    u8 any_byte() { return static_cast<u8>(random_.next()); }

    void repeat(u32 len, u32 dist)
    {
        for (; len != 0; --len) data_.push_back(data_[data_.size() - dist]);
    }

    bytes data_{'a'};
    m2_plain_writer writer_;
    std::vector<token_end> ends_;
    random_source random_{1};
};

/// Returns random tokens of every kind that streams of `level` can have.
inline m2_block random_m2_block(u64 seed, u32 level, u32 tokens)
{
    random_source random(seed);
    m2_block block(level);
    for (; tokens != 0; --tokens) {
        const u32 size = 1U << random.below(9); // varies the magnitude of lengths
        switch (random.below(16)) {
        case 0:
            block.literal_run(12 + random.below(size));
            break;
        case 1:
            if (level < 8) block.byte_run(static_cast<u8>(random.next()), random.below(size));
            break;
        case 2:
        case 3:
        case 4:
            block.literals(1 + random.below(8));
            break;
        default:
            const u32 reach = std::min(block.size(), 1U << random.below(22));
            block.match((level < 8 ? 4 : 3) + random.below(size), 1 + random.below(reach));
        }
    }
    return block;
}

} // namespace quarnex::test
