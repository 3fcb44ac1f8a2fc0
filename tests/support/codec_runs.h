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

/// The result of a codec, and the bytes that it produced: none if the result is negative.
struct codec_run {
    i32 result;
    bytes out;
};

/// Runs a codec over a job, whose output goes to a buffer for `room` bytes and their slack.
inline codec_run run_codec(const codec_entry& codec, block_job& job, usize room)
{
    const auto out = exact_buffer(room + out_slack);
    job.out_buf = out.get();
    void* const state = codec.init(job);
    const i32 result = codec.run(job, state);
    codec.release(job, state);
    return {result, result < 0 ? bytes{} : bytes(out.get(), out.get() + result)};
}

/// What an encoder makes of a block.  The bytes behind the block are zero.
inline codec_run run_encoder(const bytes& block, const file_parameters& parameters)
{
    const auto in = exact_buffer(block.size() + in_slack);
    std::copy(block.begin(), block.end(), in.get());
    block_job job;
    job.parameters = parameters;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(block.size());
    return run_codec(*encoder_table[parameters.method], job, block.size());
}

/// The payload of a block: the stream, or the block itself.
inline bytes encode(const bytes& block, const file_parameters& parameters)
{
    return run_encoder(block, parameters).out;
}

/// What a payload decodes to in a block of `length` bytes: fewer if it is damaged.  The slack
/// behind the payload is filled with `behind`.
inline bytes decode_with(const codec_entry& decoder, const bytes& payload, usize length,
                         const file_parameters& parameters, u8 behind = 0)
{
    const auto in = exact_buffer(payload.size() + payload_slack);
    std::fill_n(std::copy(payload.begin(), payload.end(), in.get()), payload_slack, behind);
    block_job job;
    job.parameters = parameters;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(payload.size());
    job.out_len = static_cast<u32>(length);
    return run_codec(decoder, job, length).out;
}

/// The same with the decoder of the parameters' method.
inline bytes decode(const bytes& payload, usize length, const file_parameters& parameters)
{
    return decode_with(*decoder_table[parameters.method], payload, length, parameters);
}

} // namespace quarnex::test
