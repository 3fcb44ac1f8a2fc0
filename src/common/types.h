// common/types.h - integer types
//
// Positions, lengths and distances in a block are u32; file sizes and offsets are u64.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarnex {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i32 = std::int32_t;
using i64 = std::int64_t;
using usize = std::size_t;

} // namespace quarnex
