// method2/m2_decoder.cpp - decoder of method 2: LZ77 with static prefix codes
//
// Token codes and counts are Elias gamma codes (Elias 1975), distances a class of 5 bits and extra
// bits.  O(n) time; no memory besides the two buffers and constant tables of about 1 KiB.
//
// The textbook decoder reads one token at a time and branches on its kind and on the width of each
// field.  Here two readers take turns.  decode_ordinary() decodes the bulk of a stream: one pass is
// a match together with the literals before it, up to three, without a branch on their number, on
// the length of the match's code or on its class.  Whatever is rare, unusual or corrupt, and the
// ends of the stream and of the block, is left to decode_token(), which decodes one token of any
// kind and makes all the checks.
//
// The latency of a pass is that of its dependency chain: window, literals, token code, class, width
// of the extra bits, next window.  The window is not loaded from the address where the last token
// ended, which would add a load latency to the chain; it is shifted, and filled up from the word
// that follows it, which was loaded at the start of the pass.
#include "coding/decoder_forms.h"
#include "coding/payload_tail.h"
#include "common/copy.h"
#include "method2/m2_codec.h"
#include "method2/m2_format.h"

#include <algorithm>
#include <cassert>

namespace quarnex {
namespace {

/// The state of a decoder: bits of the stream consumed, bytes of the block made.  After a last
/// match that passes the block's end, `pos` does so too.
struct m2_cursors {
    u64 bit;
    u64 pos;
};
/// The `bit` of cursors that cannot advance: at the end token or a corrupt one.
constexpr u64 m2_stopped = UINT64_MAX;
/// In place of the length of a token that doesn't count.
constexpr u64 m2_no_bytes = UINT64_MAX;

/// Returns the top `count` bits of a word, 1 to 64.
constexpr u64 m2_top_bits(u64 word, usize count)
{
    return word >> (-count & 63);
}

/// The bits of a stream by their number.
struct m2_bits {
    const u8* in;

    /// Returns the bits from `bit` on, from the top down: m2_valid_bits or more, then zeros.
    [[gnu::always_inline]] u64 from(u64 bit) const
    {
        return load_u64_high_first(in + bit / 8) << bit % 8;
    }
    /// Returns the bits from bit + 64 on, likewise.
    [[gnu::always_inline]] u64 next_from(u64 bit) const
    {
        return load_u64_high_first(in + 8 + bit / 8) << bit % 8;
    }
    /// Returns the eight bits from `bit` on.  Reads no further byte.
    u8 byte_at(u64 bit) const
    {
        const u32 pair = u32{in[bit / 8]} << 8 | in[(bit + 7) / 8];
        return static_cast<u8>(pair >> (8 - bit % 8));
    }
    /// Returns the 64 bits from `bit` on.
    u64 all_from(u64 bit) const
    {
        return from(bit) | static_cast<u64>(in[bit / 8 + 8]) >> (8 - bit % 8);
    }
};
constexpr u32 m2_valid_bits = 57;

/// Upper bound of the bytes read by a token, except those of a literal run: the longest gamma code,
/// a class, extra bits, and the word loaded at these.
constexpr u32 m2_token_reads = (m2_max_gamma_bits + m2_class_bits + m2_max_extra_bits + 7) / 8 + 8;
/// Bytes read by a pass over ordinary tokens, from the first one on.
constexpr u32 m2_pass_reads = 2 * 8;
static_assert(m2_valid_bits <= 8 * m2_pass_reads && m2_pass_reads <= m2_token_reads);

/// Returned by take_gamma() for a value of 2^32 or more, which no encoder writes.
constexpr u64 m2_invalid_gamma = 0;

/// Reads bit fields one after the other.
struct m2_bit_reader {
    m2_bits bits;
    u64 bit; // the next one

    /// Reads a field of `count` bits, 1 to m2_valid_bits.
    u64 take(usize count)
    {
        assert(count >= 1 && count <= m2_valid_bits);
        const u64 field = m2_top_bits(bits.from(bit), count);
        bit += count;
        return field;
    }

    /// Reads gamma(v) and returns v.
    u64 take_gamma()
    {
        const auto zeros = static_cast<usize>(std::countl_zero(bits.from(bit)));
        if (zeros >= 32) return m2_invalid_gamma;
        bit += zeros;
        return take(zeros + 1);
    }
};

/// Returns the positions of the flags of the first `count` tokens of a window if all are literals.
constexpr u64 m2_literal_flags(u32 count)
{
    u64 flags = 0;
    for (u32 i = 0; i < count; ++i) flags |= u64{1} << (63 - i * m2_literal_bits);
    return flags;
}

constexpr u32 m2_fused_literals = 3; // literals at most that one pass decodes with a match
constexpr u32 m2_max_literals = 6;   // literals at most that one pass without a match decodes
static_assert(m2_max_literals * m2_literal_bits <= m2_valid_bits);
static_assert(m2_fused_literals < m2_max_literals);

/// The shortest distance of each class.
constexpr std::array<u32, m2_classes> m2_first_dist = [] {
    std::array<u32, m2_classes> dists = m2_dist_base;
    for (u32& dist : dists) ++dist;
    return dists;
}();

/// The difference between the length of a match and its token code, by the first seven bits of the
/// token.  For other tokens m2_no_length, which makes the sum greater than any ordinary length.
constexpr i32 m2_no_length = 1 << 30;
template <u32 MinMatch>
constexpr std::array<i32, 128> m2_length_offset = [] {
    std::array<i32, 128> offsets{};
    for (u32 top = 0; top < 64; ++top) {
        offsets[top] = top < m2_first_long_code / 2 ? -1 : i32{MinMatch} - i32{m2_first_match_code};
    }
    // A code of seven bits equals their value.
    if (MinMatch == 4) offsets[m2_byte_run_code] = m2_no_length;
    offsets[m2_literal_run_code] = offsets[m2_end_code] = m2_no_length;
    return offsets;
}();

/// Matches up to this length are copied as one word of this size.
constexpr u32 m2_word_match = 32;
static_assert(copy_match_overrun <= m2_word_match);
constexpr u32 m2_pass_writes = m2_fused_literals + m2_word_match;
static_assert(m2_max_literals <= m2_pass_writes);

/// Writes the bytes of the first `Count` tokens of a window as if all were literals.
template <u32 Count>
[[gnu::always_inline]] inline void m2_put_literals(u8* dest, u64 window)
{
    for (u32 i = 0; i < Count; ++i) {
        dest[i] = static_cast<u8>(window >> (64 - (i + 1) * m2_literal_bits));
    }
}

/// A stream while it is decoded.
template <u32 MinMatch, class Bits>
struct m2_decoding {
    m2_bits bits;    // the tokens
    u64 bit_count;   // of them
    u8* const block; // with the raw byte
    usize size;      // of the block

    /// Decodes the block of a job.  The result is shorter than the block if the stream is corrupt.
    [[gnu::always_inline]] static codec_result decode(const codec_job& job)
    {
        if (job.in_len == 0 || job.out_len == 0) return {};
        *job.out_buf = *job.in_buf;
        const m2_decoding stream{
            {job.in_buf + 1}, u64{job.in_len - 1} * 8, job.out_buf, job.out_len};
        m2_cursors at{0, 1};
        while (at.pos < stream.size && at.bit < stream.bit_limit()) {
            at = stream.decode_ordinary(at);
            if (at.pos < stream.size && at.bit < stream.bit_limit()) at = stream.decode_token(at);
        }
        return stream.decode_rest(job, at);
    }

  private:
    /// Returns the bit up to which a token can start whose reads are all in the payload.
    [[gnu::always_inline]] u64 bit_limit() const
    {
        return bit_count - std::min<u64>(bit_count, u64{8} * m2_token_reads);
    }

    /// Decodes the tokens from `at` on, which is a stop, past the block or at bit_limit() or later.
    [[gnu::noinline]] codec_result decode_rest(const codec_job& job, m2_cursors at) const
    {
        if (at.bit == m2_stopped || at.bit < bit_limit())
            return {.length = static_cast<u32>(std::min<u64>(at.pos, size))};
        payload_tail<m2_token_reads> tail(job);
        const u64 skipped = at.bit / 8;
        const m2_decoding rest{
            {tail.enter(bits.in + skipped)}, bit_count - 8 * skipped, block, size};
        at.bit %= 8;
        while (at.pos < size && at.bit != m2_stopped) at = rest.decode_token(at);
        if (at.pos < size) return {.length = static_cast<u32>(at.pos)};
        return {.length = static_cast<u32>(size), .exact_end = rest.ends_exactly(at)};
    }

    /// Returns whether the block ends at `at` as an encoder's can, and the stream with the end
    /// token and the zero bits that fill up its byte.
    bool ends_exactly(m2_cursors at) const
    {
        assert(at.pos >= size && at.bit <= bit_count);
        if (at.pos - size > max_match_overrun(MinMatch)) return false;
        const u64 left = bit_count - at.bit;
        constexpr u32 end_bits = m2_gamma_bits(m2_end_code);
        if (left < end_bits || left >= end_bits + 8) return false;
        const u64 last = bits.from(at.bit) >> (64 - left);
        return last == u64{m2_end_code} << (left - end_bits);
    }

    /// Decodes literals and matches from `at` on, up to another token, a corrupt one, one with more
    /// bits than a window, or the last ones of the stream or of the block.  Returns where it
    /// stopped.
    [[gnu::always_inline]] m2_cursors decode_ordinary(m2_cursors at) const
    {
        assert(at.bit < bit_limit() && at.pos < size);
        u64 bit = at.bit;
        auto pos = static_cast<usize>(at.pos);
        u64 window = bits.all_from(bit);
        const u64 bit_end = bit_count - u64{8} * m2_pass_reads;
        const usize pos_end = size - std::min<usize>(size, m2_pass_writes - 1);
        while (pos < pos_end && bit < bit_end) {
            const u64 following = bits.next_from(bit);
            u8* const dest = block + pos;
            const u64 others = ~window & m2_literal_flags(m2_fused_literals + 1);
            if (others == 0) [[unlikely]] {
                const usize literal_bits = put_literals(window, dest);
                window = window << literal_bits | m2_top_bits(following, literal_bits);
                bit += literal_bits;
                pos += literal_bits / 8;
                continue;
            }
            const usize literal_bits = Bits::leading_zeros(others);
            m2_put_literals<m2_fused_literals>(dest, window);
            const u64 token = window << literal_bits;
            const usize code_bits = 2 * Bits::leading_zeros(token) + 1;
            const u64 after_code = token << (code_bits & 63); // counts above 63 fail below
            const auto c = static_cast<usize>(after_code >> (64 - m2_class_bits));
            const usize extra_bits = m2_extra_bits[c];
            const usize used = literal_bits + code_bits + m2_class_bits + extra_bits;
            if (used > m2_valid_bits) [[unlikely]]
                return {bit, pos};
            window = computed_here(window << used | m2_top_bits(following, used));

            const usize start = pos + literal_bits / 8;
            const auto code = static_cast<usize>(m2_top_bits(token, code_bits));
            const auto length_class = static_cast<usize>(token >> 57);
            const std::ptrdiff_t offset = m2_length_offset<MinMatch>[length_class];
            const usize len = code + static_cast<usize>(offset);
            const auto extra =
                static_cast<usize>(m2_top_bits(after_code << m2_class_bits, extra_bits));
            const usize dist = extra + m2_first_dist[c];
            if (dist > start || !copy_ordinary(start, dist, len)) [[unlikely]]
                return {bit + literal_bits, start};
            bit += used;
            pos = start + len;
        }
        return {bit, pos};
    }

    /// Decodes the token at `at`, of any kind.  Returns m2_stopped and an unchanged position at the
    /// end token, at a corrupt token, and if the stream ends within the token.
    [[gnu::noinline]] m2_cursors decode_token(m2_cursors at) const
    {
        assert(at.bit <= bit_count && at.pos < size);
        m2_bit_reader reader{bits, at.bit};
        const u64 code = reader.take_gamma();
        const u64 made = decode_body(reader, code, static_cast<usize>(at.pos));
        if (made == m2_no_bytes || reader.bit > bit_count) return {m2_stopped, at.pos};
        return {reader.bit, at.pos + made};
    }

    /// Writes the literals at the top of a window, up to m2_max_literals, and returns their bits.
    [[gnu::always_inline]] static usize put_literals(u64 window, u8* dest)
    {
        m2_put_literals<m2_max_literals>(dest, window);
        constexpr u64 end = u64{1} << (63 - m2_max_literals * m2_literal_bits);
        return Bits::leading_zeros((~window & m2_literal_flags(m2_max_literals)) | end);
    }

    /// Copies a match.  Returns false if the token is no match, or a match too close to the end of
    /// the block.
    [[gnu::always_inline]] bool copy_ordinary(usize pos, usize dist, usize len) const
    {
        assert(pos + m2_word_match <= size);
        u8* const dest = block + pos;
        if (dist >= 16 && len <= m2_word_match) [[likely]] {
            const u8* const source = dest - dist;
            copy_16(dest, source);
            copy_16(dest + 16, source + 16);
            return true;
        }
        if (len >= usize{m2_no_length} || len > size - pos - copy_match_overrun) return false;
        copy_match(dest, static_cast<u32>(dist), len);
        return true;
    }

    /// Returns how many of `len` bytes from `pos` on are in the block.
    usize room_for(usize pos, u64 len) const
    {
        assert(pos <= size);
        return static_cast<usize>(std::min<u64>(len, size - pos));
    }

    /// Reads what follows a token code and writes the token's bytes at `pos`.  Returns their
    /// number, unclipped in a match, or m2_no_bytes.
    u64 decode_body(m2_bit_reader& reader, u64 code, usize pos) const
    {
        switch (code) {
        case m2_invalid_gamma:
        case m2_end_code:
            return m2_no_bytes;
        case m2_literal_code:
            block[pos] = static_cast<u8>(reader.take(8));
            return 1;
        case m2_literal_run_code:
            return decode_literal_run(reader, pos);
        case m2_byte_run_code:
            if constexpr (MinMatch == 4) return decode_byte_run(reader, pos);
            [[fallthrough]];
        default:
            return decode_match(reader, code, pos);
        }
    }

    u64 decode_match(m2_bit_reader& reader, u64 code, usize pos) const
    {
        const u64 len =
            code < m2_first_long_code ? code - m2_first_match_code + MinMatch : code - 1;
        const auto c = static_cast<usize>(reader.take(m2_class_bits));
        const u64 dist = reader.take(m2_extra_bits[c]) + m2_dist_base[c] + 1;
        if (dist > pos) return m2_no_bytes;
        copy_match_within(block + pos, static_cast<u32>(dist), room_for(pos, len), size - pos);
        return len;
    }

    u64 decode_byte_run(m2_bit_reader& reader, usize pos) const
    {
        const auto byte = static_cast<u8>(reader.take(8));
        const u64 count_code = reader.take_gamma();
        if (count_code == m2_invalid_gamma) return m2_no_bytes;
        const usize count = room_for(pos, count_code - 1);
        if (count < count_code - 1) discard_rest(reader);
        std::memset(block + pos, byte, count);
        return count;
    }

    u64 decode_literal_run(m2_bit_reader& reader, usize pos) const
    {
        const u64 count_code = reader.take_gamma();
        if (count_code == m2_invalid_gamma) return m2_no_bytes;
        const u64 wanted = count_code + m2_literal_run_base;
        const usize count = room_for(pos, wanted);
        const u64 run = reader.bit;
        reader.bit += 8 * u64{count};
        if (reader.bit > bit_count) return m2_no_bytes;
        usize done = 0;
        for (; done + 8 <= count; done += m2_valid_bits / 8)
            store_u64_high_first(block + pos + done, bits.from(run + 8 * done));
        for (; done < count; ++done) block[pos + done] = bits.byte_at(run + 8 * done);
        if (count < wanted) discard_rest(reader);
        return count;
    }

    /// Moves to the end of the stream, after a run that was clipped at the end of the block.  No
    /// encoder writes one, and so the end is not exact.
    void discard_rest(m2_bit_reader& reader) const { reader.bit = std::max(reader.bit, bit_count); }
};

} // namespace

const codec_entry m2_decoder{no_state, decode_best<m2_decoding>, release_nothing, no_memory_needed};
const codec_entry m2_portable_decoder{no_state, decode_portable<m2_decoding>, release_nothing,
                                      no_memory_needed};

} // namespace quarnex
