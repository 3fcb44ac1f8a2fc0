#include "plain/m5_plain.h"

#include "plain/plain_bit_cost.h"
#include "plain/plain_parse.h"
#include "plain/plain_slots.h"

#include <algorithm>

namespace quarnex::test {
namespace {

using pairs = std::vector<m5_plain_pair>;

/// What is learnt of a block.  Tables of more than one dimension are told flat, by their indices.
struct m5_plain_model {
    pairs lit_high{256 * 16 * 4};
    pairs lit_low{256 * 16 * 4};
    pairs match_flag{256};
    pairs len_prefix{33};
    pairs len_bits{32 * 32};
    std::vector<pairs> dist_slot{4, pairs{64}};
    std::vector<pairs> dist_footer{64}; // whole footers to slot 22, above it their top eight bits
    u32 history = 0;

    m5_plain_model()
    {
        for (u32 slot = 4; slot < 64; ++slot)
            dist_footer[slot].resize(usize{1} << (slot <= 22 ? plain_slot_extra_bits(slot) : 8));
    }

    u32 previous() const { return history & 0xFF; }
    void remember(u32 before_last, u32 last) { history = before_last << 8 | last; }

    m5_plain_pair& high_bit(u32 state, u32 position)
    {
        return lit_high[(previous() * 16 + state) * 4 + position];
    }
    m5_plain_pair& low_bit(u32 high, u32 state, u32 position)
    {
        return lit_low[(((history & 0xF) * 16 + high) * 16 + state) * 4 + position];
    }
    m5_plain_pair& len_bit(u32 count, u32 position) { return len_bits[count * 32 + position]; }
    pairs& slot_tree(u32 length_over_min) { return dist_slot[std::min(length_over_min, 3U)]; }
};

bool bit_of(u32 value, u32 index)
{
    return (value >> index & 1) != 0;
}

u32 log2_of(u32 value)
{
    u32 log = 0;
    while (value >> log > 1) ++log;
    return log;
}

/// Takes the place of a coder, and only counts what it would cost.
struct m5_plain_price {
    u32 sum = 0;

    void bit(const m5_plain_pair& pair, bool bit)
    {
        const u32 chance = bit ? 0x8000 - pair.mean() : pair.mean();
        sum += plain_bit_cost(2048) - plain_bit_cost(chance / 16);
    }
    void direct(u32 /*value*/, u32 count) { sum += count * plain_bit; }
};

template <class Coder>
struct m5_plain_writer {
    const bytes& block;
    u32 min_match;
    m5_plain_model& model;
    Coder& coder;

    void tree(pairs& tree, u32 value, u32 width)
    {
        u32 index = 1;
        for (u32 i = width; i-- > 0;) {
            coder.bit(tree[index], bit_of(value, i));
            index = index * 2 + bit_of(value, i);
        }
    }

    void literal(u32 byte)
    {
        coder.bit(model.match_flag[model.previous()], false);
        u32 state = model.history >> 8 & 0xF;
        for (u32 i = 4; i-- > 0;) {
            coder.bit(model.high_bit(state, i), bit_of(byte, 4 + i));
            state = (state * 2 + bit_of(byte, 4 + i)) % 16;
        }
        state = model.history >> 4 & 0xF;
        for (u32 i = 4; i-- > 0;) {
            coder.bit(model.low_bit(byte >> 4, state, i), bit_of(byte, i));
            state = (state * 2 + bit_of(byte, i)) % 16;
        }
    }

    void length(u32 length_value)
    {
        const u32 n = log2_of(length_value);
        for (u32 i = 1; i <= n; ++i) coder.bit(model.len_prefix[i], length_value >> i > 1);
        for (u32 i = n; i-- > 0;) coder.bit(model.len_bit(n - 1, i), bit_of(length_value, i));
    }

    void distance(u32 dist, u32 length_over_min)
    {
        const u32 d = dist - 1;
        const u32 slot = plain_slot(d);
        tree(model.slot_tree(length_over_min), slot, 6);
        if (slot <= 3) return;
        const u32 width = plain_slot_extra_bits(slot);
        const u32 footer = d - plain_slot_base(slot);
        if (slot <= 22) {
            tree(model.dist_footer[slot], footer, width);
            return;
        }
        const u32 rest_bits = width - 8;
        tree(model.dist_footer[slot], footer >> rest_bits, 8);
        coder.direct(footer % (1U << rest_bits), rest_bits);
    }

    void match(u32 length_over_min, u32 dist)
    {
        coder.bit(model.match_flag[model.previous()], true);
        length(length_over_min + 2);
        distance(dist, length_over_min);
    }

    void token(u32 pos, const plain_token& token)
    {
        model.remember(block.at(pos - 2), block.at(pos - 1));
        if (token.dist == 0)
            literal(block.at(pos));
        else
            match(token.len - min_match, token.dist);
    }
};

/// What levels 8 and 9 decide, at the prices of the moment.
bytes m5_plain_optimal(const bytes& block, u32 level, std::vector<u32>& window_starts)
{
    const u32 min_match = level == 8 ? 3 : 2;
    m5_plain_model model;
    m5_plain_coder coder;
    coder.out = {block.at(0), block.at(1)};
    m5_plain_writer<m5_plain_coder> writer{block, min_match, model, coder};
    const auto price = [&](u32 pos, const plain_token& token) {
        m5_plain_price counter;
        m5_plain_writer<m5_plain_price>{block, min_match, model, counter}.token(pos, token);
        return counter.sum;
    };
    bool planning = false; // a window is priced, then written
    const auto literal_price = [&](u32 pos) {
        window_starts.resize(window_starts.size() + !planning, pos);
        planning = true;
        return price(pos, {1, 0});
    };
    const auto match_price = [&](u32 pos, u32 len, u32 dist) { return price(pos, {len, dist}); };
    const auto write = [&](u32 pos, const plain_token& token) {
        planning = false;
        writer.token(pos, token);
    };
    plain_parse(block, m5_rules, level, min_match, {literal_price, match_price, write});
    coder.flush();
    return coder.out;
}

struct m5_plain_reader {
    plain_range_reader coder;
    m5_plain_model model{};

    bool bit(m5_plain_pair& pair)
    {
        const u32 bound = pair.mean() * (coder.range >> 15);
        const bool bit = coder.code >= bound;
        if (bit)
            coder.narrow(bound, coder.range - bound);
        else
            coder.narrow(0, bound);
        pair.learn(bit);
        return bit;
    }

    u32 tree(pairs& tree, u32 width)
    {
        u32 index = 1;
        for (u32 i = 0; i < width; ++i) index = index * 2 + bit(tree[index]);
        return index - (1U << width);
    }

    u32 literal()
    {
        u32 high = model.history >> 8 & 0xF;
        for (u32 i = 4; i-- > 0;) high = (high * 2 + bit(model.high_bit(high, i))) % 16;
        u32 low = model.history >> 4 & 0xF;
        for (u32 i = 4; i-- > 0;) low = (low * 2 + bit(model.low_bit(high, low, i))) % 16;
        model.history = model.history << 8 | high << 4 | low;
        return high << 4 | low;
    }

    u32 length()
    {
        u32 count = 0;
        while (bit(model.len_prefix[count + 1])) ++count;
        u32 value = 1;
        for (u32 i = count + 1; i-- > 0;) value = value * 2 + bit(model.len_bit(count, i));
        return value;
    }

    u32 distance(u32 length_over_min)
    {
        const u32 slot = tree(model.slot_tree(length_over_min), 6);
        if (slot <= 3) return slot + 1;
        const u32 width = plain_slot_extra_bits(slot);
        const u32 base = plain_slot_base(slot);
        if (slot <= 22) return base + tree(model.dist_footer[slot], width) + 1;
        const u32 top = tree(model.dist_footer[slot], 8);
        return base + (top << (width - 8)) + coder.direct(width - 8) + 1;
    }
};

} // namespace

void m5_plain_pair::learn(bool bit)
{
    if (bit) {
        fast -= fast >> 3;
        slow -= slow >> 6;
    } else {
        fast += (32768 - fast) >> 3;
        slow += (32768 - slow) >> 6;
    }
}

void m5_plain_coder::bit(m5_plain_pair& pair, bool bit)
{
    const u32 bound = pair.mean() * (range >> 15);
    if (bit)
        narrow(bound, range - bound);
    else
        narrow(0, bound);
    pair.learn(bit);
}

bytes m5_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match)
{
    m5_plain_model model;
    m5_plain_coder coder;
    coder.out = {block.at(0), block.at(1)};
    m5_plain_writer<m5_plain_coder> writer{block, min_match, model, coder};
    u32 pos = 2;
    for (const plain_token& token : tokens) {
        writer.token(pos, token);
        pos += token.len;
    }
    coder.flush();
    return coder.out;
}

bytes m5_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits)
{
    if (block.size() <= 2) return block;
    std::vector<u32> window_starts;
    const bytes stream =
        level >= 8 ? m5_plain_optimal(block, level, window_starts)
                   : m5_plain_stream(
                         block, plain_search(block, m5_rules, level, hash_bits, chain_bits), 4);
    return stream.size() < block.size() ? stream : block;
}

m5_plain_parse m5_plain_parse_forward(const bytes& block)
{
    m5_plain_parse parse;
    parse.stream = m5_plain_optimal(block, 9, parse.window_starts);
    return parse;
}

bytes m5_plain_decode(const bytes& stream, usize out_len, u32 min_match)
{
    bytes out{stream.at(0), stream.at(1)};
    if (out_len > 2) {
        m5_plain_reader reader{plain_range_reader(stream, 2)};
        reader.model.remember(out[0], out[1]);
        while (out.size() < out_len) {
            const bool match = reader.bit(reader.model.match_flag[reader.model.previous()]);
            const u32 length_value = match ? reader.length() : 1;
            if (length_value == 1) { // also of a match whose length overflowed
                out.push_back(static_cast<u8>(reader.literal()));
                continue;
            }
            const u32 length_over_min = length_value - 2;
            const u32 dist = reader.distance(length_over_min);
            for (u32 i = 0; i < length_over_min + min_match; ++i)
                out.push_back(out.at(out.size() - dist));
            reader.model.remember(out[out.size() - 2], out.back());
        }
    }
    out.resize(out_len);
    return out;
}

} // namespace quarnex::test
