// pipeline/codec_table.h - which codec a method number stands for, and the levels' defaults
#pragma once

#include "pipeline/codec.h"

#include <array>

namespace quarnex {

/// Rows by method; null where there is no codec.
extern const std::array<const codec_entry*, 8> encoder_table;
extern const std::array<const codec_entry*, 8> decoder_table;

/// The decoder of a method from a file's header, or null.
inline const codec_entry* find_decoder(u8 method)
{
    return method < decoder_table.size() ? decoder_table[method] : nullptr;
}

inline constexpr u8 first_method = 1;
inline constexpr u8 last_method = 5;
inline constexpr u8 last_level = 9;

/// Whether `method` is one of the five.
constexpr bool is_method(u8 method)
{
    return method >= first_method && method <= last_method;
}

/// What a level stands for where the command line says nothing.
struct level_defaults {
    std::array<i32, 10> hash_bits{12, 14, 18, 23, 24, 25, 25, 25, 26, 27};
    std::array<i32, 10> chain_bits{1, 1, 1, 1, 2, 3, 4, 6, 7, 8};
};

/// The defaults for a machine: the tables of the two fastest levels are made to fit its
/// second-level cache of `cache_kib` KiB.
level_defaults fit_to_cache(u32 cache_kib);

/// Fills in what the command line left to the level.
void apply_defaults(file_parameters& parameters, const level_defaults& defaults);

/// How many encoders have room beside each other where there are `addresses` bytes: with what their
/// level searches in, and with the buffers that go around.  At least 1.
u32 encoders_with_room(const file_parameters& parameters, u64 addresses);

} // namespace quarnex
