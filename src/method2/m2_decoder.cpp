// method2/m2_decoder.cpp - the decoder of method 2
//
// Two readers take turns.  take_ordinary() takes what streams are made of, as long as it comes: one
// pass is a match together with the literals in front of it, up to three, and there is no branch on
// their number, on the length of the match's code or on its class.  Whatever is rare, unusual or
// damaged, and the end of the stream, it leaves to take_token(), which takes one token of any kind
// and has all the tests.
//
// The time of a pass is that of a chain: window, literals, token code, class, width of the extra
// value, next window.  The window is not loaded where the last token ended, which would take eight
// cycles more: it is moved on, with bits from the word behind it, which is at hand by then.
#include "coding/decoder_forms.h"
#include "common/copy.h"
#include "method2/m2_codec.h"
#include "method2/m2_format.h"

#include <algorithm>

namespace quarnex {
namespace {

/// Where a decoder is: bits of the stream that are taken, bytes of the block that are made.
struct m2_place {
    u64 bit;
    usize pos;
};
/// The `bit` of a place from which the block can't go on.
constexpr u64 m2_stopped = UINT64_MAX;
/// Instead of the number of bytes that a token makes: it doesn't count.
constexpr usize m2_nothing = SIZE_MAX;

/// The top `count` bits of a word, 1 to 64.
constexpr u64 m2_top_bits(u64 word, usize count)
{
    return word >> (-count & 63);
}

/// The bits of a stream.
struct m2_bits {
    const u8* in;

    /// The bits from `bit` on, from the top: 57 at least are right, and zeros are below them.
    [[gnu::always_inline]] u64 from(u64 bit) const
    {
        return load_u64_high_first(in + bit / 8) << bit % 8;
    }
    /// The bits from bit + 64 on.
    [[gnu::always_inline]] u64 from_behind(u64 bit) const
    {
        return load_u64_high_first(in + 8 + bit / 8) << bit % 8;
    }
    /// The 64 bits from `bit` on.
    u64 all_from(u64 bit) const
    {
        return from(bit) | static_cast<u64>(in[bit / 8 + 8]) >> (8 - bit % 8);
    }
};
constexpr u32 m2_right_bits = 57;

/// Bytes behind the stream that are read at the most: a long code, a class, an extra value, and the
/// word that begins there.
constexpr u32 m2_decoder_reads_past = (63 + m2_class_bits + m2_most_extra_bits + 7) / 8 + 8;
static_assert(m2_decoder_reads_past <= payload_slack);

/// What take_gamma() returns for a code that no encoder writes, with a value of 2^32 or more.
constexpr u64 m2_damaged_gamma = 0;

/// Takes bits one field after the other.
struct m2_bit_reader {
    m2_bits bits;
    u64 bit; // the next one

    /// Takes a field of `count` bits, 1 to m2_right_bits.
    u64 take(usize count)
    {
        const u64 field = m2_top_bits(bits.from(bit), count);
        bit += count;
        return field;
    }

    /// Takes gamma(v) and returns v.
    u64 take_gamma()
    {
        const auto zeros = static_cast<usize>(std::countl_zero(bits.from(bit)));
        if (zeros >= 32) return m2_damaged_gamma;
        bit += zeros;
        return take(zeros + 1);
    }
};

/// The flags of the first `count` tokens of a window, if all are literals.
constexpr u64 m2_literal_flags(u32 count)
{
    u64 flags = 0;
    for (u32 i = 0; i < count; ++i) flags |= u64{1} << (63 - i * m2_literal_bits);
    return flags;
}

constexpr u32 m2_fused_literals = 3; // that are taken together with a match, at the most
constexpr u32 m2_most_literals = 6;  // that are taken at once
static_assert(m2_most_literals * m2_literal_bits <= m2_right_bits);

/// The shortest distance of each class.
constexpr std::array<u32, m2_classes> m2_first_dist = [] {
    std::array<u32, m2_classes> dists = m2_dist_base;
    for (u32& dist : dists) ++dist;
    return dists;
}();

/// What is added to a token code to get the length of the match, by the first seven bits of the
/// token.  What is no match gets m2_no_length, more than any ordinary match has.
constexpr i32 m2_no_length = 1 << 30;
template <u32 MinMatch>
constexpr std::array<i32, 128> m2_length_offset = [] {
    std::array<i32, 128> offsets{};
    for (u32 top = 0; top < 64; ++top) {
        offsets[top] = top < m2_first_long_code / 2 ? -1 : i32{MinMatch} - i32{m2_first_match_code};
    }
    // A code of seven bits is what these bits say.
    if (MinMatch == 4) offsets[m2_byte_run_code] = m2_no_length;
    offsets[m2_literal_run_code] = offsets[m2_end_code] = m2_no_length;
    return offsets;
}();

/// A match up to this length is copied as one word.
constexpr u32 m2_word_match = 32;
constexpr u32 m2_pass_writes = m2_fused_literals + m2_word_match;
static_assert(m2_pass_writes <= out_slack && m2_most_literals <= m2_pass_writes);

/// Writes the bytes of the first `Count` tokens of a window as if all were literals.
template <u32 Count>
[[gnu::always_inline]] inline void m2_put_literals(u8* to, u64 window)
{
    for (u32 i = 0; i < Count; ++i) {
        to[i] = static_cast<u8>(window >> (64 - (i + 1) * m2_literal_bits));
    }
}

/// A stream while it is decoded.
template <u32 MinMatch, class Bits>
struct m2_decoding {
    m2_bits bits;    // the tokens
    u64 bit_count;   // of them
    u8* const block; // with the raw byte
    usize size;      // of the block

    /// Decodes the block of a job.  Returns the bytes in it, fewer than its length at damage.
    [[gnu::always_inline]] static codec_result decode(const codec_job& job)
    {
        if (job.in_len == 0 || job.out_len == 0) return {};
        *job.out_buf = *job.in_buf;
        const m2_decoding stream{
            {job.in_buf + 1}, u64{job.in_len - 1} * 8, job.out_buf, job.out_len};
        m2_place place{0, 1};
        while (place.pos < stream.size && place.bit != m2_stopped) {
            place = stream.take_ordinary(place);
            if (place.pos < stream.size) place = stream.take_token(place);
        }
        return {.length = static_cast<u32>(std::min(place.pos, stream.size))};
    }

  private:
    /// Takes literals and matches from `place` on, up to another token, a damaged one, one that has
    /// too many bits for a window, or the stream's last ones.  Returns the place of that.
    [[gnu::always_inline]] m2_place take_ordinary(m2_place place) const
    {
        u64 bit = place.bit;
        usize pos = place.pos;
        u64 window = bits.all_from(bit);
        const u64 end = bit_count - std::min<u64>(bit_count, m2_right_bits - 1);
        while (pos < size && bit < end) {
            const u64 following = bits.from_behind(bit);
            u8* const to = block + pos;
            const u64 others = ~window & m2_literal_flags(m2_fused_literals + 1);
            if (others == 0) [[unlikely]] {
                const usize literal_bits = take_literals(window, to);
                window = window << literal_bits | m2_top_bits(following, literal_bits);
                bit += literal_bits;
                pos += literal_bits / 8;
                continue;
            }
            const usize literal_bits = Bits::leading_zeros(others);
            m2_put_literals<m2_fused_literals>(to, window);
            const u64 token = window << literal_bits;
            const usize code_bits = 2 * Bits::leading_zeros(token) + 1;
            const u64 behind_code = token << (code_bits & 63); // too many are found out below
            const auto c = static_cast<usize>(behind_code >> (64 - m2_class_bits));
            const usize extra_bits = m2_extra_bits[c];
            const usize taken = literal_bits + code_bits + m2_class_bits + extra_bits;
            if (taken > m2_right_bits) [[unlikely]]
                return {bit, pos};
            window = computed_here(window << taken | m2_top_bits(following, taken));

            const usize at = pos + literal_bits / 8;
            const auto code = static_cast<usize>(m2_top_bits(token, code_bits));
            const auto length_class = static_cast<usize>(token >> 57);
            const std::ptrdiff_t offset = m2_length_offset<MinMatch>[length_class];
            const usize len = code + static_cast<usize>(offset);
            const auto extra =
                static_cast<usize>(m2_top_bits(behind_code << m2_class_bits, extra_bits));
            const usize dist = extra + m2_first_dist[c];
            if (dist > at || !copy_ordinary(at, dist, len)) [[unlikely]]
                return {bit + literal_bits, at};
            bit += taken;
            pos = at + len;
        }
        return {bit, pos};
    }

    /// Takes the token at `place`, whatever it is.  At the end token, at damage, and if the stream
    /// ends within the token, the place that it returns is m2_stopped, and what is made counts up
    /// to there.
    [[gnu::noinline]] m2_place take_token(m2_place place) const
    {
        m2_bit_reader from{bits, place.bit};
        const usize made = take_body(from, from.take_gamma(), place.pos);
        if (made == m2_nothing || from.bit > bit_count) return {m2_stopped, place.pos};
        return {from.bit, place.pos + made};
    }

    /// Takes literals, all that are at the window's top.  Returns how many bits they are.
    [[gnu::always_inline]] static usize take_literals(u64 window, u8* to)
    {
        m2_put_literals<m2_most_literals>(to, window);
        constexpr u64 end = u64{1} << (63 - m2_most_literals * m2_literal_bits);
        return Bits::leading_zeros((~window & m2_literal_flags(m2_most_literals)) | end);
    }

    /// Copies a match unless it is none.
    [[gnu::always_inline]] bool copy_ordinary(usize at, usize dist, usize len) const
    {
        u8* const to = block + at;
        if (dist >= 16 && len <= m2_word_match) [[likely]] {
            const u8* const from = to - dist;
            copy_16(to, from);
            copy_16(to + 16, from + 16);
            return true;
        }
        if (len >= usize{m2_no_length}) return false;
        copy_match(to, static_cast<u32>(dist), room_for(at, len));
        return true;
    }

    /// How much of `len` bytes from `pos` on is in the block.
    usize room_for(usize pos, u64 len) const
    {
        return static_cast<usize>(std::min<u64>(len, size - std::min(pos, size)));
    }

    /// Takes what is behind a token code and makes the token's bytes at `pos`.  Returns their
    /// number, or m2_nothing.
    usize take_body(m2_bit_reader& from, u64 code, usize pos) const
    {
        switch (code) {
        case m2_damaged_gamma:
        case m2_end_code:
            return m2_nothing;
        case m2_literal_code:
            block[pos] = static_cast<u8>(from.take(8));
            return 1;
        case m2_literal_run_code:
            return take_literal_run(from, pos);
        case m2_byte_run_code:
            if constexpr (MinMatch == 4) return take_byte_run(from, pos);
            [[fallthrough]];
        default:
            return take_match(from, code, pos);
        }
    }

    usize take_match(m2_bit_reader& from, u64 code, usize pos) const
    {
        const u64 len =
            code < m2_first_long_code ? code - m2_first_match_code + MinMatch : code - 1;
        const auto c = static_cast<usize>(from.take(m2_class_bits));
        const u64 dist = from.take(m2_extra_bits[c]) + m2_dist_base[c] + 1;
        if (dist > pos) return m2_nothing;
        const usize inside = room_for(pos, len);
        copy_match(block + pos, static_cast<u32>(dist), inside);
        return inside;
    }

    usize take_byte_run(m2_bit_reader& from, usize pos) const
    {
        const auto byte = static_cast<u8>(from.take(8));
        const u64 count_code = from.take_gamma();
        const u64 count = count_code - 1;
        if (count_code == m2_damaged_gamma || count > size - pos) return m2_nothing;
        std::memset(block + pos, byte, static_cast<usize>(count));
        return static_cast<usize>(count);
    }

    usize take_literal_run(m2_bit_reader& from, usize pos) const
    {
        const u64 count_code = from.take_gamma();
        const u64 count = count_code + m2_literal_run_base;
        const u64 run_end = from.bit + 8 * count;
        if (count_code == m2_damaged_gamma || count > size - pos || run_end > bit_count)
            return m2_nothing;
        for (usize done = 0; done < count; done += m2_right_bits / 8) {
            store_u64_high_first(block + pos + done, bits.from(from.bit + 8 * done));
        }
        from.bit = run_end;
        return static_cast<usize>(count);
    }
};

} // namespace

const codec_entry m2_decoder{no_state, decode_best<m2_decoding>, release_nothing, no_memory_needed};
const codec_entry m2_portable_decoder{no_state, decode_portable<m2_decoding>, release_nothing,
                                      no_memory_needed};

} // namespace quarnex
