// format/file_parameters.h - parameters of a file: the content of its header except the size
#pragma once

#include "coding/codec.h"

namespace quarnex {

inline constexpr u8 first_method = 1;
inline constexpr u8 last_method = 5;
inline constexpr u8 last_level = 9;

/// True if `method` is one of the five.
constexpr bool is_method(u8 method)
{
    return method >= first_method && method <= last_method;
}

/// Parameters of all blocks of a file, from the command line or from its header.
struct file_parameters {
    codec_parameters codec{};
    u8 filter_flags = 0; // low nibble: pre-filter, 0 for none
    u16 block_mb = 32;   // block size in MiB

    /// Bytes in each block but the last.
    constexpr u64 block_size() const { return u64{block_mb} << 20; }
};

} // namespace quarnex
