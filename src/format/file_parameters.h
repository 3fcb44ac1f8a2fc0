// format/file_parameters.h - how a file is coded: what its header holds besides its size
#pragma once

#include "coding/codec.h"

namespace quarnex {

inline constexpr u8 first_method = 1;
inline constexpr u8 last_method = 5;
inline constexpr u8 last_level = 9;

/// Whether `method` is one of the five.
constexpr bool is_method(u8 method)
{
    return method >= first_method && method <= last_method;
}

/// What the command line or a file's header says about all blocks of a file.
struct file_parameters {
    codec_parameters codec{};
    u8 filter_flags = 0; // low nibble: the pre-filter; 0 is none
    u16 block_mb = 32;   // block size in MiB

    /// Bytes in each block but the last.
    constexpr u64 block_size() const { return u64{block_mb} << 20; }
};

} // namespace quarnex
