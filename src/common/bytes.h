// common/bytes.h - little-endian loads and stores at any alignment
//
// All numbers of the file format are little-endian.  Each function compiles to one load or store on
// little-endian machines, plus a byte swap on big-endian ones.
#pragma once

#include "common/types.h"

#include <bit>
#include <cstring>

namespace quarnex {

/// `value` with its bytes reversed.
template <class T>
constexpr T byte_swap(T value)
{
    T swapped = 0;
    for (usize i = 0; i < sizeof(T); ++i) {
        swapped = static_cast<T>(static_cast<T>(swapped << 8) | (value & 0xFF));
        value = static_cast<T>(value >> 8);
    }
    return swapped;
}

/// Reads sizeof(T) bytes at `src` as a little-endian number.
template <class T>
inline T load_le(const u8* src)
{
    T value;
    std::memcpy(&value, src, sizeof value);
    if constexpr (std::endian::native == std::endian::big) value = byte_swap(value);
    return value;
}

/// Writes `value` as sizeof(T) little-endian bytes at `dest`.
template <class T>
inline void store_le(u8* dest, T value)
{
    if constexpr (std::endian::native == std::endian::big) value = byte_swap(value);
    std::memcpy(dest, &value, sizeof value);
}

inline u16 load_u16(const u8* src)
{
    return load_le<u16>(src);
}
inline u32 load_u32(const u8* src)
{
    return load_le<u32>(src);
}
inline u64 load_u64(const u8* src)
{
    return load_le<u64>(src);
}
/// Reads eight bytes as a big-endian number.
inline u64 load_u64_high_first(const u8* src)
{
    return byte_swap(load_u64(src));
}
inline void store_u16(u8* dest, u16 value)
{
    store_le(dest, value);
}
inline void store_u32(u8* dest, u32 value)
{
    store_le(dest, value);
}
inline void store_u64(u8* dest, u64 value)
{
    store_le(dest, value);
}
/// Writes `value` as eight big-endian bytes.
inline void store_u64_high_first(u8* dest, u64 value)
{
    store_u64(dest, byte_swap(value));
}

} // namespace quarnex
