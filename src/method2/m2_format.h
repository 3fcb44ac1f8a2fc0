// method2/m2_format.h - the bit stream of method 2: gamma codes, tokens, distance classes
//
// A stream is the block's first byte, then tokens, the most significant bit of each byte first,
// then zero bits up to a whole byte.  gamma(v) is the Elias gamma code (Elias 1975) of v, 1 or
// more: v in binary, preceded by one zero for each bit after its leading one: 1 is 1, 2 is 010, 5
// is 00101.  A token starts with one:
//
//     gamma(1)    literal      the byte: 8
//     gamma(13)   byte run     the byte: 8, gamma(count + 1)   (where the shortest match is 4)
//     gamma(14)   literal run  gamma(count - 11), the bytes: 8 each
//     gamma(15)   end
//     gamma(v)    match        class: 5, extra: m2_extra_bits[class]
//
//     length   = v - 2 + min_match below v = 13 (14 where the shortest match is 3), v - 1 above 15
//     distance = m2_dist_base[class] + extra + 1
//
// The format's only definition in code: encoder and decoder include this file and repeat none of
// its numbers.
#pragma once

#include "common/types.h"

#include <array>
#include <bit>
#include <cassert>

namespace quarnex {

inline constexpr u32 m2_literal_code = 1;
inline constexpr u32 m2_first_match_code = 2;
/// Only where the shortest match is 4; otherwise a match code like those before it.
inline constexpr u32 m2_byte_run_code = 13;
inline constexpr u32 m2_literal_run_code = 14;
inline constexpr u32 m2_end_code = 15;
inline constexpr u32 m2_first_long_code = 16;

/// The length of the match with the first long code.  Shorter matches have the codes below those of
/// runs and of the end.
inline constexpr u32 m2_first_long_length = m2_first_long_code - 1;
/// The length of a literal run less the value of its gamma code.
inline constexpr u32 m2_literal_run_base = 11;
/// The shortest literal run that encoders write, though a run of 12 would save 4 bits already.
inline constexpr u32 m2_first_literal_run = 13;

/// Returns the token code of a match of `len` bytes.
template <u32 MinMatch>
constexpr u32 m2_match_code(u32 len)
{
    return len < m2_first_long_length ? len - MinMatch + m2_first_match_code : len + 1;
}

/// Returns the zeros before the leading one of gamma(v), which is also the number of bits after it.
constexpr u32 m2_gamma_zeros(u32 v)
{
    return static_cast<u32>(std::bit_width(v)) - 1;
}

/// Returns the bits of gamma(v).
constexpr u32 m2_gamma_bits(u32 v)
{
    return 2 * m2_gamma_zeros(v) + 1;
}
/// Of values below 2^32.
inline constexpr u32 m2_max_gamma_bits = m2_gamma_bits(UINT32_MAX);

inline constexpr u32 m2_literal_bits = m2_gamma_bits(m2_literal_code) + 8;
inline constexpr u32 m2_class_bits = 5;
inline constexpr u32 m2_classes = 1 << m2_class_bits;

/// Number of extra bits of a distance, by class.
inline constexpr std::array<u8, m2_classes> m2_extra_bits{
    4,  4,  5,  5,  6,  6,  7,  7,  8,  8,  9,  9,  10, 10, 11, 11, //
    12, 12, 13, 13, 14, 14, 15, 15, 16, 17, 18, 19, 20, 21, 22, 30};
inline constexpr u32 m2_max_extra_bits = 30;

/// The longest distance that has a class.
inline constexpr u32 m2_max_dist = 1 << 25;

/// Tables computed from the widths.
struct m2_class_tables {
    static constexpr u32 near_limit = 4096; // of distance - 1
    static constexpr u32 far_shift = 11;

    std::array<u32, m2_classes> base{};      // the smallest distance - 1
    std::array<u8, near_limit> class_near{}; // the class by distance - 1 below near_limit
    std::array<u8, (m2_max_dist >> far_shift)> class_far{}; // by distance - 1 >> far_shift, above
};

/// Lays the classes end to end: first by single distances, until a class passes near_limit; then,
/// from near_limit on, in steps of 2^far_shift.  The last near class therefore has codes for
/// distances that belong to the first far class.
constexpr m2_class_tables m2_build_tables()
{
    m2_class_tables tables;
    u32 next = 0;
    u32 c = 0;
    for (; next < tables.near_limit; ++c) {
        tables.base[c] = next;
        for (const u32 end = next + (1U << m2_extra_bits[c]); next < end; ++next) {
            if (next < tables.near_limit) tables.class_near[next] = static_cast<u8>(c);
        }
    }
    u32 step = next >> tables.far_shift;
    for (; c < m2_classes; ++c) {
        tables.base[c] = step << tables.far_shift;
        const u32 end = step + (1U << (m2_extra_bits[c] - tables.far_shift));
        for (; step < end && step < tables.class_far.size(); ++step) {
            tables.class_far[step] = static_cast<u8>(c);
        }
    }
    return tables;
}

inline constexpr m2_class_tables m2_tables = m2_build_tables();
inline constexpr const std::array<u32, m2_classes>& m2_dist_base = m2_tables.base;
static_assert(m2_dist_base[14] == 4064 && m2_dist_base[15] == 4096 && m2_dist_base[31] == 8452096);

/// Returns the class of a distance (1 to m2_max_dist).
constexpr u32 m2_distance_class(u32 dist)
{
    assert(dist >= 1 && dist <= m2_max_dist);
    const u32 offset = dist - 1;
    return offset < m2_class_tables::near_limit
               ? m2_tables.class_near[offset]
               : m2_tables.class_far[offset >> m2_class_tables::far_shift];
}

} // namespace quarnex
