#include "pipeline/block_coder.h"

#include "format/container.h"
#include "format/filters.h"
#include "pipeline/codec_table.h"

#include <cstring>
#include <utility>

namespace quarnex {
namespace {

/// Initializes, runs and releases a codec.
codec_result run_codec(const codec_entry& codec, const codec_job& job)
{
    void* const state = codec.init(job);
    if (state == nullptr) return {.status = codec_status::no_state};
    const codec_result result = codec.run(job, state);
    codec.release(job, state);
    return result;
}

/// Returns the block's destination and position for the writer, without its bytes.
write_job describe_block(const block_job& job)
{
    write_job finished;
    finished.out_file = job.out_file;
    finished.mode = job.mode;
    finished.block_mb = job.block_mb;
    finished.block_index = job.block_index;
    finished.block_count = job.block_count;
    return finished;
}

block_result encode_block(buffer_pool& buffers, block_job& job, write_job& record)
{
    codec_job& codec = job.codec;
    record.buf = buffers.take(record_head_bytes + codec.in_len + out_slack);
    if (!record.buf) return {block_status::no_buffer};
    codec.out_buf = record.buf.get() + record_head_bytes;

    codec_result coded;
    if (codec.in_len != 0) {
        coded = run_codec(*encoder_table[codec.parameters.method], codec);
        if (coded.status != codec_status::done) return {block_status::uncoded, coded.status};
        if (coded.length >= codec.in_len) coded = store_block(codec);
    }
    job.in_alloc.reset();
    pack_record_head(record.buf.get(), {coded.length, 0});
    record.size = static_cast<u32>(record_head_bytes) + coded.length;
    return {.produced = coded.length};
}

/// Decodes the payload into a new buffer, padded with zeros to `out_len` bytes, and frees the
/// payload.
block_result decode_payload(buffer_pool& buffers, block_job& job, write_job& data)
{
    codec_job& codec = job.codec;
    data.buf = buffers.take(codec.out_len);
    if (!data.buf) return {block_status::no_buffer};
    codec.out_buf = data.buf.get();
    const codec_result decoded = run_codec(*decoder_table[codec.parameters.method], codec);
    job.in_alloc.reset();
    if (decoded.status != codec_status::done) return {block_status::uncoded, decoded.status};
    if (decoded.length < codec.out_len)
        std::memset(codec.out_buf + decoded.length, 0, codec.out_len - decoded.length);
    return {.produced = decoded.length};
}

block_result decode_block(buffer_pool& buffers, block_job& job, write_job& data)
{
    data.size = job.codec.out_len;
    block_result result{.produced = data.size};
    if (job.codec.out_len == job.codec.in_len) // stored: the payload is the filtered block
        data.buf = std::move(job.in_alloc);
    else
        result = decode_payload(buffers, job, data);
    if (result.status == block_status::done)
        run_filter(job.filter_flags, {data.buf.get(), data.size}, filter_use::undo);
    return result;
}

} // namespace

block_result code_block(buffer_pool& buffers, scratch& memory, block_job& job, write_job& finished)
{
    finished = describe_block(job);
    job.codec.memory = &memory;
    return job.mode == direction::compress ? encode_block(buffers, job, finished)
                                           : decode_block(buffers, job, finished);
}

int write_block(write_job& finished, u32 sequence)
{
    system_file& file = finished.out_file->file;
    if (finished.mode == direction::compress) {
        finished.buf[displacement_offset] = displacement_byte(finished.block_index, sequence);
    } else {
        const u64 block_size = u64{finished.block_mb} << 20;
        if (const int error = file.seek(u64{finished.block_index} * block_size); error != 0)
            return error;
    }
    return file.write(finished.buf.get(), finished.size);
}

} // namespace quarnex
