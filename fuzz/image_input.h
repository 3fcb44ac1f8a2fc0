// fuzz/image_input.h - .qrx images with all kinds of damage, for the targets that read images
#pragma once

#include "fuzz_target.h"

namespace quarnex::fuzz {

inline constexpr u64 max_data = u64{4} << 20; // maximum original size, if bounded

/// Which sizes in the header of an image are bounded.
struct header_bounds {
    bool original_size = true; // at most max_data
    bool block_size = true;    // 1 MiB
};

/// Bounds the sizes in the header of `image`, if it has one.
void bound_sizes(const header_bounds& bounds, bytes& image);

/// Returns files of several blocks, with each kind of layout fault.
std::vector<bytes> several_blocks();
/// Returns files with a damaged record head, a damaged header, or both.
std::vector<bytes> damaged_files();

} // namespace quarnex::fuzz
