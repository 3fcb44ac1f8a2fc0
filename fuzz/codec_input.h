// fuzz/codec_input.h - calls codecs with the parameters and bytes of an input
#pragma once

#include "format/file_parameters.h"
#include "fuzz_target.h"
#include "pipeline/codec_table.h"

#include <functional>
#include <span>

namespace quarnex::fuzz {

/// Bytes at the start of an input that select the method, the level and the table sizes.
inline constexpr usize parameter_bytes = 5;

/// Removes the parameters from the front of `input`, which has at least parameter_bytes bytes.  Any
/// bytes are valid.
codec_parameters take_parameters(std::span<const u8>& input);
/// Returns the start of an input: the encoding of `parameters`.
bytes start_input(const codec_parameters& parameters);

/// Calls `visit` with each method and level and a block of each shape.
void for_each_cell_and_shape(
    usize block_size, const std::function<void(const codec_parameters&, const bytes&)>& visit);

/// The result of a codec and its whole output buffer.
struct coded {
    codec_result result;
    bytes out;
};

/// Encodes a block of at least 1 byte.  All buffers are separate heap blocks that end with their
/// slack.
coded encode(const codec_parameters& parameters, std::span<const u8> block);
/// Decodes a payload from a heap block of its exact size to one of `out_len` bytes.  The output
/// buffer is first filled with `fill`.
coded decode(const codec_entry& decoder, const codec_parameters& parameters,
             std::span<const u8> payload, u32 out_len, u8 fill);

/// Returns the payload of `block` in a file.
bytes payload_of(const codec_parameters& parameters, const bytes& block);

} // namespace quarnex::fuzz
