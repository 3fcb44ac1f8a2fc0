// common/bytes.h - little-endian loads and stores at any alignment
//
// All numbers of the file format are little-endian.  Each function is one load or store on
// little-endian machines and right on all others.
#pragma once

#include "common/types.h"

#include <bit>
#include <cstring>

namespace quarnex {

/// The bytes of `value` in the other order.
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

/// Reads sizeof(T) bytes at `from` as a little-endian number.
template <class T>
inline T load_le(const u8* from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    if constexpr (std::endian::native == std::endian::big) value = byte_swap(value);
    return value;
}

/// Writes `value` as sizeof(T) little-endian bytes at `to`.
template <class T>
inline void store_le(u8* to, T value)
{
    if constexpr (std::endian::native == std::endian::big) value = byte_swap(value);
    std::memcpy(to, &value, sizeof value);
}

inline u16 load_u16(const u8* from)
{
    return load_le<u16>(from);
}
inline u32 load_u32(const u8* from)
{
    return load_le<u32>(from);
}
inline u64 load_u64(const u8* from)
{
    return load_le<u64>(from);
}
/// Reads eight bytes, the first of them the highest.
inline u64 load_u64_high_first(const u8* from)
{
    return byte_swap(load_u64(from));
}
inline void store_u16(u8* to, u16 value)
{
    store_le(to, value);
}
inline void store_u32(u8* to, u32 value)
{
    store_le(to, value);
}
inline void store_u64(u8* to, u64 value)
{
    store_le(to, value);
}
/// Writes eight bytes, the highest of them first.
inline void store_u64_high_first(u8* to, u64 value)
{
    store_u64(to, byte_swap(value));
}

} // namespace quarnex
