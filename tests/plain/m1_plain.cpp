#include "plain/m1_plain.h"

namespace quarnex::test {
namespace {

u32 word_at(const bytes& data, usize at)
{
    u32 word = 0;
    for (usize i = 0; i < 4; ++i) {
        if (at + i < data.size()) word |= u32{data[at + i]} << (8 * i); // zeros behind the block
    }
    return word;
}

u8 byte_at(const bytes& data, usize at)
{
    return at < data.size() ? data[at] : 0;
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

/// Collects flags and items the way the format lays them down.
struct plain_writer {
    bytes out;
    usize control = 0;
    u32 flags = 1; // with a mark in front

    void reserve_control()
    {
        control = out.size();
        out.insert(out.end(), 4, 0);
    }

    void store_control(u32 word)
    {
        for (usize i = 0; i < 4; ++i) out[control + i] = static_cast<u8>(word >> (8 * i));
    }

    /// To be called when the item of the flag has been written.
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

/// The searches of levels 0 to 2, position by position.
struct plain_search {
    const bytes& block;
    u32 hash_bits;
    std::vector<u32> table = std::vector<u32>(usize{1} << hash_bits);
    std::vector<plain_token> tokens{};

    u32& slot(usize at) { return table[(word_at(block, at) * 123456791U) >> (32 - hash_bits)]; }
    void insert(usize at) { slot(at) = static_cast<u32>(at); }

    u32 match_length(usize at, usize cand) const
    {
        u32 len = 4; // the words are equal, and may reach behind the block
        while (at + len < block.size() && block[at + len] == block[cand + len]) ++len;
        return len;
    }

    static bool better(i64 longer, u32 dist, u32 cand_dist)
    {
        return (longer >= 0 && cand_dist < dist) || longer >= 2 ||
               (longer == 1 && dist > cand_dist >> 3) || (longer >= -1 && cand_dist < dist >> 3);
    }

    void greedy(bool insert_inside)
    {
        for (usize at = 1; at < block.size();) {
            const u32 cand = slot(at);
            insert(at);
            if (word_at(block, cand) != word_at(block, at)) {
                tokens.push_back({1, 0});
                ++at;
                continue;
            }
            const u32 len = match_length(at, cand);
            tokens.push_back({len, static_cast<u32>(at - cand)});
            if (insert_inside) {
                insert(at + 1);
                insert(at + 2);
                insert(at + len - 1);
            }
            at += len;
        }
    }

    /// Whether the match at `at` gives way to a literal; may replace it.
    bool next_is_better(usize at, plain_token& best)
    {
        const usize next = at + 1;
        const u32 cand = slot(next);
        if (byte_at(block, next + best.len - 1) != byte_at(block, cand + best.len - 1))
            return false;
        if (word_at(block, cand) != word_at(block, next)) return false;
        const plain_token other{match_length(next, cand), static_cast<u32>(next - cand)};
        const i64 longer = i64{other.len} - i64{best.len};
        const bool before = cand > 0 && cand != at && block[cand - 1] == block[at];
        if (before && better(longer + 1, best.dist, other.dist)) {
            best = {other.len + 1, other.dist};
            return false;
        }
        return better(longer - 1, best.dist, other.dist);
    }

    void lazy()
    {
        for (usize at = 1; at < block.size();) {
            const u32 cand = slot(at);
            insert(at);
            plain_token best{1, 0};
            if (word_at(block, cand) == word_at(block, at)) {
                best = {match_length(at, cand), static_cast<u32>(at - cand)};
                if (next_is_better(at, best)) best = {1, 0};
            }
            tokens.push_back(best);
            if (best.dist == 0) {
                ++at;
                continue;
            }
            insert(at + 1);
            insert(at + 2);
            at += best.len;
            insert(at - 1);
            insert(at - 2);
        }
    }
};

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

std::vector<plain_token> m1_plain_search(const bytes& block, u32 level, u32 hash_bits)
{
    plain_search search{block, hash_bits};
    if (level == 2)
        search.lazy();
    else
        search.greedy(level == 1);
    return search.tokens;
}

bytes m1_plain_encode(const bytes& block, u32 level, u32 hash_bits)
{
    const bytes stream = m1_plain_stream(block, m1_plain_search(block, level, hash_bits), 4);
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
