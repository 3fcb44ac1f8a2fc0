// pipeline/parameters.h - resolves parameters: the defaults of each level and the limits
#pragma once

#include "format/file_parameters.h"

#include <array>

namespace quarnex {

inline constexpr i32 min_hash_bits = 10;
inline constexpr i32 max_hash_bits = 30;
inline constexpr i32 max_chain_bits = 8;
inline constexpr u8 max_lit_ctx_bits = 8;
inline constexpr u16 max_block_mb = 2047;

/// Table sizes, indexed by level.
struct level_defaults {
    std::array<i32, 10> hash_bits{12, 14, 18, 23, 24, 25, 25, 25, 26, 27};
    std::array<i32, 10> chain_bits{1, 1, 1, 1, 2, 3, 4, 6, 7, 8};
};

/// Returns defaults whose hash tables for levels 0 and 1 fit a second-level cache of `cache_kib`
/// KiB.
level_defaults fit_to_cache(u32 cache_kib);

/// Caps the block size of levels 4 to 7 at 16 MiB: their bucket rings store 24-bit positions.
void cap_block_size(file_parameters& parameters);

/// Completes the parameters for compression: caps the level and the block size, and fills in table
/// sizes that were not given.
void settle_parameters(file_parameters& parameters, const level_defaults& defaults);

/// Whether parameters are in range and complete, including those that decoders ignore.
bool are_settled(const file_parameters& parameters);

} // namespace quarnex
