#include "plain/m1_plain.h"

#include "plain/plain_parse.h"

namespace quarnex::test {
namespace {

u32 word_at(const bytes& data, usize at)
{
    u32 word = 0;
    for (usize i = 0; i < 4; ++i) {
        if (at + i < data.size()) word |= u32{data[at + i]} << (8 * i); // zeros after the block
    }
    return word;
}

void put_integer(bytes& out, u32 value)
{
    if (value < 0x80) {
        out.push_back(static_cast<u8>(value));
    } else if (value < 0x4000) {
        out.push_back(static_cast<u8>(0x80 | value >> 8));
        out.push_back(static_cast<u8>(value));
    } else if (value < 0x200000) {
        out.push_back(static_cast<u8>(0xC0 | value >> 16));
        out.push_back(static_cast<u8>(value));
        out.push_back(static_cast<u8>(value >> 8));
    } else if (value < 0x10000000) {
        out.push_back(static_cast<u8>(0xE0 | value >> 24));
        out.push_back(static_cast<u8>(value));
        out.push_back(static_cast<u8>(value >> 8));
        out.push_back(static_cast<u8>(value >> 16));
    } else {
        out.push_back(0xF0);
        for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<u8>(value >> shift));
    }
}

u32 integer_size(u32 value)
{
    bytes out;
    put_integer(out, value);
    return static_cast<u32>(out.size());
}

u32 get_integer(const bytes& in, usize& at)
{
    const u8 first = in.at(at++);
    if (first < 0x80) return first;
    if (first < 0xC0) return (first & 0x3FU) << 8 | in.at(at++);
    u32 tail = 0;
    const u32 more = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    for (u32 i = 0; i < more; ++i) tail |= u32{in.at(at++)} << (8 * i);
    if (more == 2) return (first & 0x1FU) << 16 | tail;
    if (more == 3) return (first & 0x0FU) << 24 | tail;
    return tail;
}

/// Collects flags and items, one at a time.
struct plain_writer {
    bytes out;
    usize control = 0;
    u32 flags = 1; // below a sentinel

    void reserve_control()
    {
        control = out.size();
        out.insert(out.end(), 4, 0);
    }

    void store_control(u32 word)
    {
        for (usize i = 0; i < 4; ++i) out[control + i] = static_cast<u8>(word >> (8 * i));
    }

    /// Adds the flag of the item just written.
    void flag(u32 bit)
    {
        const bool last = flags >> 31 != 0;
        flags = flags << 1 | bit;
        if (!last) return;
        store_control(flags);
        flags = 1;
        reserve_control();
    }

    void match(u32 code, u32 dist)
    {
        if (code < 4 && dist - 1 < 0x2000) {
            const u32 token = (dist - 1) << 1 | code << 14;
            out.push_back(static_cast<u8>(token));
            out.push_back(static_cast<u8>(token >> 8));
        } else if (code < 8 && dist - 1 < 0x80000) {
            const u32 token = 1 | (dist - 1) << 2 | code << 21;
            out.push_back(static_cast<u8>(token));
            out.push_back(static_cast<u8>(token >> 8));
            out.push_back(static_cast<u8>(token >> 16));
        } else {
            if (code < 63) {
                out.push_back(static_cast<u8>(code * 4 + 3));
            } else {
                out.push_back(0xFF);
                put_integer(out, code - 63);
            }
            put_integer(out, dist);
        }
        flag(1);
    }
};

// Prices of levels 8 and 9, in 1/256 of a byte.
constexpr u32 literal_price = 256 + 33;

u32 match_price(u32 /*pos*/, u32 len, u32 dist)
{
    const u32 code = len - 3;
    if (code < 4 && dist - 1 < 0x2000) return 2 * 256 + 1;
    if (code < 8 && dist - 1 < 0x80000) return 3 * 256 + 1;
    const u32 length_size = code < 63 ? 0 : integer_size(code - 63);
    return (1 + length_size + integer_size(dist)) * 256 + 1;
}

} // namespace

bytes m1_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match)
{
    plain_writer writer;
    writer.out.push_back(block.at(0));
    writer.reserve_control();
    usize at = 1;
    for (const plain_token& token : tokens) {
        if (token.dist == 0) {
            writer.out.push_back(block.at(at));
            writer.flag(0);
        } else {
            writer.match(token.len - min_match, token.dist);
        }
        at += token.len;
    }
    writer.out.push_back(0xEB);
    writer.out.push_back(0x00);
    writer.flag(1);
    u32 last = writer.flags;
    while (last >> 31 == 0) last <<= 1;
    writer.store_control(last << 1);
    return writer.out;
}

bytes m1_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits)
{
    const bool priced = level >= 8;
    const auto tokens = priced
                            ? plain_parse_tokens(block, m1_rules, level, literal_price, match_price)
                            : plain_search(block, m1_rules, level, hash_bits, chain_bits);
    const bytes stream = m1_plain_stream(block, tokens, priced ? 3 : 4);
    return stream.size() < block.size() ? stream : block;
}

bytes m1_plain_decode(const bytes& stream, u32 min_match)
{
    usize at = 0;
    bytes out{stream.at(at++)};
    for (;;) {
        u32 control = word_at(stream, at);
        at += 4;
        for (int flags = 0; flags < 32; ++flags, control <<= 1) {
            if (control >> 31 == 0) {
                out.push_back(stream.at(at++));
                continue;
            }
            const u8 first = stream.at(at);
            u32 len = 0;
            u32 dist = 0;
            if ((first & 1) == 0) {
                const u32 token = word_at(stream, at);
                dist = (token >> 1 & 0x1FFF) + 1;
                len = (token >> 14 & 3) + min_match;
                at += 2;
            } else if ((first & 2) == 0) {
                const u32 token = word_at(stream, at);
                dist = (token >> 2 & 0x7FFFF) + 1;
                len = (token >> 21 & 7) + min_match;
                at += 3;
            } else {
                ++at;
                len = (first >> 2) + min_match;
                if (first >> 2 == 63) len += get_integer(stream, at);
                dist = get_integer(stream, at);
                if (dist == 0) return out;
            }
            for (u32 i = 0; i < len; ++i) out.push_back(out.at(out.size() - dist));
        }
    }
}

} // namespace quarnex::test
