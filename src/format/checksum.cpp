#include "format/checksum.h"

#ifdef QUARNEX_ISAL
#include <isa-l/crc.h>
#else
#include <libdeflate.h>
#endif

namespace quarnex {
namespace {

// Polynomials of degree below 32, reflected: the top bit is the coefficient of x^0.
constexpr u32 generator = 0xEDB88320;
constexpr u32 one = 0x80000000;
constexpr u32 x_to_8 = one >> 8;

/// Returns a * b modulo the generator.
constexpr u32 multiply(u32 a, u32 b)
{
    u32 product = 0;
    for (u32 bit = one; bit != 0; bit >>= 1) {
        if ((a & bit) != 0) product ^= b;
        b = (b & 1) != 0 ? b >> 1 ^ generator : b >> 1;
    }
    return product;
}
static_assert(multiply(one, 0x12345678) == 0x12345678);
static_assert(multiply(one >> 1, one >> 31) == generator);

/// Returns x^(8 * bytes) modulo the generator.
constexpr u32 shift_by(u64 bytes)
{
    u32 power = one;
    for (u32 square = x_to_8; bytes != 0; bytes >>= 1) {
        if ((bytes & 1) != 0) power = multiply(power, square);
        square = multiply(square, square);
    }
    return power;
}

} // namespace

u32 crc32(u32 sum, const u8* data, usize size)
{
    if (size == 0) return sum; // data can be null
#ifdef QUARNEX_ISAL
    return crc32_gzip_refl(sum, data, size);
#else
    return libdeflate_crc32(sum, data, size);
#endif
}

u32 combine_crc32(u32 first, u32 second, u64 second_size)
{
    return multiply(shift_by(second_size), first) ^ second;
}

} // namespace quarnex
