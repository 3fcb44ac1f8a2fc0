// support/codec_runs.h - runs codecs on one block, in buffers that end exactly: those of encoders
// at their slack, those of decoders at the payload's and the block's end
#pragma once

#include "common/scratch.h"
#include "pipeline/codec_table.h"
#include "pipeline/parameters.h"
#include "support/shapes.h"

#include <algorithm>
#include <memory>

namespace quarnex::test {

/// A heap buffer of exactly `size` bytes, so that a sanitizer detects each access beyond it.  Out
/// of line: GCC 12 warns of copies to buffers whose constant size it sees.
[[gnu::noinline]] inline std::unique_ptr<u8[]> exact_buffer(usize size)
{
    return std::make_unique<u8[]>(size);
}

inline codec_parameters parameters_of(u8 method, u8 level, i32 hash_bits = 0)
{
    file_parameters parameters{.codec = {.method = method, .level = level, .hash_bits = hash_bits}};
    settle_parameters(parameters, level_defaults{});
    return parameters.codec;
}

/// The result of a codec and the bytes that it wrote.
struct codec_run {
    codec_result result;
    bytes out;
};

/// Runs a codec with an output buffer of `capacity` bytes.
inline codec_run run_codec(const codec_entry& codec, codec_job& job, usize capacity,
                           const allocator& source = system_allocator)
{
    const auto out = exact_buffer(capacity);
    scratch memory(source);
    job.out_buf = out.get();
    job.memory = &memory;
    void* const state = codec.init(job);
    if (state == nullptr) return {{.status = codec_status::no_state}, {}};
    const codec_result result = codec.run(job, state);
    codec.release(job, state);
    return {result, bytes(out.get(), out.get() + result.length)};
}

/// Encodes a block.  The slack after the block is zero.
inline codec_run run_encoder(const bytes& block, const codec_parameters& parameters,
                             const allocator& source = system_allocator)
{
    const auto in = exact_buffer(block.size() + in_slack);
    std::copy(block.begin(), block.end(), in.get());
    codec_job job;
    job.parameters = parameters;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(block.size());
    return run_codec(*encoder_table[parameters.method], job, block.size() + out_slack, source);
}

/// Returns the payload of a block: the stream, or the block itself if it is stored.
inline bytes encode(const bytes& block, const codec_parameters& parameters)
{
    return run_encoder(block, parameters).out;
}

/// Decodes a payload of a block of `length` bytes; a damaged one may give fewer bytes.  The bytes
/// `after` follow the payload in its buffer.
inline codec_run run_decoder(const codec_entry& decoder, const bytes& payload, usize length,
                             const codec_parameters& parameters, const bytes& after = {})
{
    const bytes content = joined({payload, after});
    const auto in = exact_buffer(content.size());
    std::copy(content.begin(), content.end(), in.get());
    codec_job job;
    job.parameters = parameters;
    job.in_buf = in.get();
    job.in_len = static_cast<u32>(payload.size());
    job.out_len = static_cast<u32>(length);
    return run_codec(decoder, job, length);
}

/// Returns the bytes of run_decoder().
inline bytes decode_with(const codec_entry& decoder, const bytes& payload, usize length,
                         const codec_parameters& parameters, const bytes& after = {})
{
    return run_decoder(decoder, payload, length, parameters, after).out;
}

/// Decodes with the decoder of the parameters' method.
inline bytes decode(const bytes& payload, usize length, const codec_parameters& parameters)
{
    return decode_with(*decoder_table[parameters.method], payload, length, parameters);
}

} // namespace quarnex::test
