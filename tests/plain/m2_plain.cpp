#include "plain/m2_plain.h"

#include <algorithm>
#include <stdexcept>

namespace quarnex::test {
namespace {

static_assert(m2_plain_first_dist(0) == 1 && m2_plain_first_dist(1) == 17);
static_assert(m2_plain_first_dist(13) == 3041);
static_assert(m2_plain_extra_bits(14) == 11 && m2_plain_first_dist(14) == 4065);
static_assert(m2_plain_extra_bits(15) == 11 && m2_plain_first_dist(15) == 4097);
static_assert(m2_plain_first_dist(16) == 6145 && m2_plain_first_dist(24) == 129025);
static_assert(m2_plain_extra_bits(24) == 16 && m2_plain_extra_bits(30) == 22);
static_assert(m2_plain_extra_bits(31) == 30 && m2_plain_first_dist(31) == 8452097);
static_assert(m2_plain_class_of(4064) == 13 && m2_plain_class_of(4065) == 14);
static_assert(m2_plain_class_of(4096) == 14 && m2_plain_class_of(4097) == 15);
static_assert(m2_plain_class_of(6144) == 15 && m2_plain_class_of(m2_rules.max_dist) == 31);

// The token codes that are no matches.  The codes from 2 on are matches of up to 14 bytes, without
// 13 where there are byte runs; those from 16 on are matches of 15 bytes and more.
constexpr u32 literal_code = 1;
constexpr u32 byte_run_code = 13;
constexpr u32 literal_run_code = 14;
constexpr u32 end_code = 15;

constexpr u32 shortest_literal_run = 12;

bool has_byte_runs(u32 level)
{
    return level <= 7;
}

u32 shortest_match(u32 level)
{
    return has_byte_runs(level) ? 4 : 3;
}

u32 code_of_length(u32 len, u32 level)
{
    return len >= 15 ? len + 1 : len - shortest_match(level) + 2;
}

u32 length_of_code(u32 code, u32 level)
{
    return code >= 16 ? code - 1 : code - 2 + shortest_match(level);
}

/// Writes literals one by one or, from `shortest_run` on, as a run.
void write_literals(m2_plain_writer& writer, const bytes& literals, usize shortest_run)
{
    if (literals.size() >= shortest_run) {
        writer.literal_run(literals);
        return;
    }
    for (const u8 byte : literals) writer.literal(byte);
}

/// Throws std::out_of_range where the stream ends.
struct m2_plain_reader {
    const bytes& in;
    usize at = 8; // in bits; the first byte is raw

    u32 take(u32 count)
    {
        u32 value = 0;
        for (u32 i = 0; i < count; ++i, ++at)
            value = value * 2 + (in.at(at / 8) >> (7 - at % 8) & 1U);
        return value;
    }

    u32 gamma()
    {
        u32 zeros = 0;
        while (take(1) == 0) ++zeros;
        if (zeros >= 32) throw std::out_of_range("gamma code");
        return 1U << zeros | take(zeros);
    }

    u8 byte() { return static_cast<u8>(take(8)); }

    u32 distance()
    {
        const u32 dist_class = take(5);
        return m2_plain_first_dist(dist_class) + take(m2_plain_extra_bits(dist_class));
    }
};

} // namespace

m2_plain_writer& m2_plain_writer::put(u64 value, u32 count)
{
    for (u32 i = count; i-- > 0;) {
        if (free_bits == 0) {
            out.push_back(0);
            free_bits = 8;
        }
        --free_bits;
        out.back() = static_cast<u8>(out.back() | (value >> i & 1) << free_bits);
    }
    return *this;
}

m2_plain_writer& m2_plain_writer::gamma(u64 value)
{
    u32 log = 0;
    while (value >> log > 1) ++log;
    return put(0, log).put(value, log + 1);
}

m2_plain_writer& m2_plain_writer::literal(u8 byte)
{
    return gamma(literal_code).put(byte, 8);
}

m2_plain_writer& m2_plain_writer::match(u32 len, u32 dist)
{
    const u32 dist_class = m2_plain_class_of(dist);
    return match_in_class(len, dist_class, dist - m2_plain_first_dist(dist_class));
}

m2_plain_writer& m2_plain_writer::match_in_class(u32 len, u32 dist_class, u32 extra)
{
    gamma(code_of_length(len, level));
    return put(dist_class, 5).put(extra, m2_plain_extra_bits(dist_class));
}

m2_plain_writer& m2_plain_writer::byte_run(u8 byte, u32 count)
{
    return gamma(byte_run_code).put(byte, 8).gamma(u64{count} + 1);
}

m2_plain_writer& m2_plain_writer::literal_run(const bytes& raw)
{
    gamma(literal_run_code).gamma(raw.size() - shortest_literal_run + 1);
    for (const u8 byte : raw) put(byte, 8);
    return *this;
}

m2_plain_writer& m2_plain_writer::end()
{
    return gamma(end_code);
}

bytes m2_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 level,
                      usize shortest_run)
{
    m2_plain_writer writer(block.at(0), level);
    bytes literals;
    usize at = 1;
    for (const plain_token& token : tokens) {
        if (token.dist == 0) {
            literals.push_back(block.at(at));
        } else {
            write_literals(writer, literals, shortest_run);
            literals.clear();
            writer.match(token.len, token.dist);
        }
        at += token.len;
    }
    write_literals(writer, literals, shortest_run);
    return writer.end().out;
}

namespace {

/// Appends the bytes of one token to a block of `out_len`, clipped at its end.  False at the end
/// token.  Throws std::out_of_range, with any bytes appended, where the token is damaged or cut
/// off.
bool take_token(m2_plain_reader& reader, bytes& out, usize out_len, u32 level)
{
    const usize room = out_len - out.size();
    const u32 code = reader.gamma();
    if (code == end_code) return false;
    if (code == literal_code) {
        out.push_back(reader.byte());
    } else if (code == literal_run_code) {
        u64 count = u64{reader.gamma()} - 1 + shortest_literal_run;
        for (count = std::min<u64>(count, room); count > 0; --count) out.push_back(reader.byte());
    } else if (code == byte_run_code && has_byte_runs(level)) {
        const u8 byte = reader.byte();
        const u32 count = reader.gamma() - 1;
        out.insert(out.end(), std::min<usize>(count, room), byte);
    } else {
        const u32 dist = reader.distance();
        for (usize len = std::min<usize>(length_of_code(code, level), room); len > 0; --len)
            out.push_back(out.at(out.size() - dist));
    }
    return true;
}

} // namespace

bytes m2_plain_decode(const bytes& stream, usize out_len, u32 level)
{
    if (out_len == 0 || stream.empty()) return {};
    m2_plain_reader reader{stream};
    bytes out{stream[0]};
    while (out.size() < out_len) {
        const usize whole = out.size();
        try {
            if (!take_token(reader, out, out_len, level)) break;
        } catch (const std::out_of_range&) {
            out.resize(whole);
            break;
        }
    }
    return out;
}

} // namespace quarnex::test
