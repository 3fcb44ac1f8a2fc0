#include "pipeline/memory_needs.h"

#include "pipeline/codec_table.h"
#include "pipeline/file_reader.h"
#include "pipeline/file_writer.h"

#include <algorithm>

namespace quarnex {
namespace {

/// Allowance, for each block of the ring and each thread, for the ring, the threads and names.
constexpr u64 small_things = 4096;

/// Bytes that a codec at work needs for itself.
u64 working_memory(const codec_entry& codec, const codec_parameters& parameters, u64 length)
{
    return small_things +
           codec.memory(parameters, static_cast<u32>(std::min<u64>(length, UINT32_MAX)));
}

/// Bytes of the buffers for `blocks` blocks and of the codecs at work.
u64 coder_memory(const codec_entry& codec, const codec_parameters& parameters, u64 length,
                 u32 threads, u32 blocks)
{
    const u64 buffer = length + std::max(in_slack, out_slack) + small_things;
    return coder_buffers(threads, blocks) * buffer +
           std::max(threads, 1U) * working_memory(codec, parameters, length);
}

const codec_entry& decoder_of(const codec_parameters& codec)
{
    // Without a known method all blocks are stored.
    return *decoder_table[is_method(codec.method) ? codec.method : first_method];
}

} // namespace

u64 reader_memory(const file_parameters& parameters, u64 length, u32 threads)
{
    const codec_parameters& codec = parameters.codec;
    return coder_memory(decoder_of(codec), codec, length, threads, reader_capacity(threads));
}

u64 writer_memory(const file_parameters& parameters, u64 length, u32 threads)
{
    const codec_parameters& codec = parameters.codec;
    // One more block is being filled.
    return coder_memory(*encoder_table[codec.method], codec, length, threads,
                        writer_capacity(threads) + 1);
}

u64 decoder_memory(const codec_parameters& parameters, u64 length)
{
    return working_memory(decoder_of(parameters), parameters, length);
}

} // namespace quarnex
