// fuzz/codec_input.h - codecs called with the parameters and the bytes of an input
#pragma once

#include "format/file_parameters.h"
#include "fuzz_target.h"
#include "pipeline/codec_table.h"

#include <functional>
#include <span>

namespace quarnex::fuzz {

/// Bytes at the front of an input that choose the method, the level and the tables' sizes.
inline constexpr usize parameter_bytes = 5;

/// Takes the parameters from the front of `input`, which has that many bytes or more.  Any bytes
/// are good.
codec_parameters take_parameters(std::span<const u8>& input);
/// An input that starts with `parameters`.
bytes start_input(const codec_parameters& parameters);

/// Calls `use` with each method and level and with a block of each shape.
void for_each_cell_and_shape(usize block_size,
                             const std::function<void(const codec_parameters&, const bytes&)>& use);

/// What a codec did: its result and the output buffer with its slack.
struct coded {
    codec_result result;
    bytes out;
};

/// Encodes a block of 1 byte or more.  All buffers are heap blocks of their own that end with their
/// slack.
coded encode(const codec_parameters& parameters, std::span<const u8> block);
/// Decodes a payload.  The output buffer is filled with `fill` before.
coded decode(const codec_entry& decoder, const codec_parameters& parameters,
             std::span<const u8> payload, u32 out_len, u8 fill);

/// The payload that stands for `block` in a file.
bytes payload_of(const codec_parameters& parameters, const bytes& block);

} // namespace quarnex::fuzz
