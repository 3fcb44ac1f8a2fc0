#include "pipeline/memory_needs.h"

#include "pipeline/codec_table.h"
#include "pipeline/file_reader.h"
#include "pipeline/file_writer.h"

#include <algorithm>

namespace quarnex {
namespace {

/// Allowance, for each block of the ring and each thread, for the ring, the threads and names.
constexpr u64 small_things = 4096;

/// Bytes of the buffers for `blocks` blocks and of the codecs at work.
u64 coder_memory(const codec_entry& codec, const codec_parameters& parameters, u64 length,
                 u32 threads, u32 blocks)
{
    const u64 buffer = length + std::max(in_slack, out_slack) + small_things;
    const u64 working =
        codec.memory(parameters, static_cast<u32>(std::min<u64>(length, UINT32_MAX)));
    return coder_buffers(threads, blocks) * buffer +
           std::max(threads, 1U) * (working + small_things);
}

} // namespace

u64 reader_memory(const file_parameters& parameters, u64 length, u32 threads)
{
    const codec_parameters& codec = parameters.codec;
    // Without a known method all blocks are stored.
    const codec_entry& entry =
        *decoder_table[is_method(codec.method) ? codec.method : first_method];
    return coder_memory(entry, codec, length, threads, reader_capacity(threads));
}

u64 writer_memory(const file_parameters& parameters, u64 length, u32 threads)
{
    const codec_parameters& codec = parameters.codec;
    // One more block is being filled.
    return coder_memory(*encoder_table[codec.method], codec, length, threads,
                        writer_capacity(threads) + 1);
}

} // namespace quarnex
