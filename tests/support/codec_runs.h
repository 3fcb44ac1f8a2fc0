// support/codec_runs.h - one block through a codec, in buffers that end exactly at their slack
#pragma once

#include "pipeline/codec_table.h"
#include "support/shapes.h"

#include <algorithm>
#include <memory>

namespace quarnex::test {

/// A heap buffer of exactly `size` bytes, so that a sanitizer sees each access beyond it.
inline std::unique_ptr<u8[]> exact_buffer(usize size)
{
    return std::make_unique<u8[]>(size);
}

inline file_parameters parameters_of(u8 method, u8 level, i32 hash_bits = 0)
{
    file_parameters parameters;
    parameters.method = method;
    parameters.level = level;
    parameters.hash_bits = hash_bits;
    apply_defaults(parameters, level_defaults{});
    return parameters;
}

/// The payload of a block: the stream, or the block itself.  The bytes behind the block are zero.
inline bytes encode(const bytes& block, const file_parameters& parameters)
{
    const auto in = exact_buffer(block.size() + in_slack);
    std::copy(block.begin(), block.end(), in.get());
    const auto out = exact_buffer(block.size() + out_slack);
    block_job job;
    job.parameters = parameters;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(block.size());
    job.out_buf = out.get();
    const codec_entry& encoder = *encoder_table[parameters.method];
    void* const state = encoder.init(job);
    const i32 size = encoder.run(job, state);
    encoder.release(job, state);
    if (size < 0) return {};
    return {out.get(), out.get() + size};
}

/// What a payload decodes to in a block of `length` bytes: fewer if it is damaged.
inline bytes decode_with(const codec_entry& decoder, const bytes& payload, usize length,
                         const file_parameters& parameters)
{
    const auto in = exact_buffer(payload.size() + payload_slack);
    std::copy(payload.begin(), payload.end(), in.get());
    const auto out = exact_buffer(length + out_slack);
    block_job job;
    job.parameters = parameters;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(payload.size());
    job.out_buf = out.get();
    job.out_len = static_cast<u32>(length);
    void* const state = decoder.init(job);
    const i32 size = decoder.run(job, state);
    decoder.release(job, state);
    return {out.get(), out.get() + size};
}

/// The same with the decoder of the parameters' method.
inline bytes decode(const bytes& payload, usize length, const file_parameters& parameters)
{
    return decode_with(*decoder_table[parameters.method], payload, length, parameters);
}

} // namespace quarnex::test
