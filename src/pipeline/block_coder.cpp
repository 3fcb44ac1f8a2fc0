#include "pipeline/block_coder.h"

#include "format/container.h"
#include "format/filters.h"
#include "pipeline/codec_table.h"

#include <algorithm>
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
    if (codec.out_buf == nullptr) {
        record.head = job.has_header ? static_cast<u32>(file_header_bytes) : 0;
        const usize before = record.head + record_head_bytes;
        record.buf = buffers.take(std::max(before + codec.in_len + out_slack, job.buffer_bytes));
        if (!record.buf) return {block_status::no_buffer};
        std::copy_n(job.header.begin(), record.head, record.buf.get());
        codec.out_buf = record.buf.get() + before;
    }

    codec_result coded;
    if (codec.in_len != 0) coded = encode(codec);
    if (coded.status != codec_status::done) return {block_status::uncoded, coded.status};
    job.in_alloc.reset();
    pack_record_head(codec.out_buf - record_head_bytes, {coded.length, 0});
    record.size = record.head + static_cast<u32>(record_head_bytes) + coded.length;
    return {.produced = coded.length};
}

/// Decodes the payload, and pads the block with zeros to `out_len` bytes.
block_result decode_payload(block_job& job)
{
    const codec_job& codec = job.codec;
    const codec_result decoded = decode(codec);
    if (decoded.status != codec_status::done) return {block_status::uncoded, decoded.status};
    if (decoded.length < codec.out_len)
        std::memset(codec.out_buf + decoded.length, 0, codec.out_len - decoded.length);
    return {.produced = decoded.length, .exact_end = decoded.exact_end};
}

block_result decode_block(buffer_pool& buffers, block_job& job, write_job& data)
{
    codec_job& codec = job.codec;
    const bool is_stored = codec.out_len == codec.in_len; // the payload is the filtered block
    block_result result{.produced = codec.out_len};
    data.size = codec.out_len;
    if (is_stored && job.in_alloc && codec.out_buf == nullptr) {
        data.buf = std::move(job.in_alloc);
        codec.out_buf = data.buf.get();
    } else {
        if (codec.out_buf == nullptr) {
            data.buf = buffers.take(std::max<usize>(codec.out_len, job.buffer_bytes));
            codec.out_buf = data.buf.get();
            if (!data.buf) return {block_status::no_buffer};
        }
        if (!is_stored)
            result = decode_payload(job);
        else if (codec.out_len != 0)
            std::memcpy(codec.out_buf, codec.in_buf, codec.out_len);
        if (result.status != block_status::done) return result;
        job.in_alloc.reset();
    }
    run_filter(job.filter_flags, {codec.out_buf, codec.out_len}, filter_use::undo);
    return result;
}

} // namespace

codec_result encode(const codec_job& job)
{
    const codec_result coded = run_codec(*encoder_table[job.parameters.method], job);
    return coded.status == codec_status::done && coded.length >= job.in_len ? store_block(job)
                                                                            : coded;
}

codec_result decode(const codec_job& job)
{
    return run_codec(*decoder_table[job.parameters.method], job);
}

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
        finished.buf[finished.head + displacement_offset] =
            displacement_byte(finished.block_index, sequence);
        return file.write(finished.buf.get(), finished.size);
    }
    const u64 block_size = u64{finished.block_mb} << 20;
    if (finished.size == 0) return file.seek(0); // an empty file, which a pipe can't be
    return file.write_at(finished.block_index * block_size, finished.buf.get(), finished.size);
}

} // namespace quarnex
