// pipeline/parameters.h - how parameters are settled: what a level stands for where nothing is
// chosen
#pragma once

#include "format/file_parameters.h"

#include <array>

namespace quarnex {

/// Table sizes by level.
struct level_defaults {
    std::array<i32, 10> hash_bits{12, 14, 18, 23, 24, 25, 25, 25, 26, 27};
    std::array<i32, 10> chain_bits{1, 1, 1, 1, 2, 3, 4, 6, 7, 8};
};

/// The defaults for a machine: the tables of the two fastest levels fit its second-level cache of
/// `cache_kib` KiB.
level_defaults fit_to_cache(u32 cache_kib);

/// Caps the block size of levels 4 to 7 at 16 MiB: positions in their rings have 24 bits.
void cap_block_size(file_parameters& parameters);

/// Completes the parameters of a file that is compressed: caps the level and the block size, and
/// fills in the table sizes that were not chosen.
void settle_parameters(file_parameters& parameters, const level_defaults& defaults);

} // namespace quarnex
