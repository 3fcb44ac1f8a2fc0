#include "pipeline/block_coder.h"

#include "format/container.h"
#include "format/filters.h"
#include "pipeline/codec_table.h"
#include "pipeline/output_file.h"
#include "pipeline/progress.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace quarnex {
namespace {

/// Calls the three operations of a codec.  `length` is the result of `run`.
block_result run_codec(const codec_entry& codec, const block_job& job, i32& length)
{
    void* const state = codec.init(job);
    if (state == nullptr) return block_result::not_started;
    length = codec.run(job, state);
    codec.release(job, state);
    return length < 0 ? block_result::failed : block_result::done;
}

/// What the writer has to know of a block, whatever became of its bytes.
write_job describe_block(const block_job& job)
{
    write_job finished;
    finished.out_file = job.out_file;
    finished.block_index = job.block_index;
    finished.block_count = job.block_count;
    return finished;
}

/// Makes the bytes of a block that its decoder left out zero, and says so.
void report_length(const block_job& job, i32 produced)
{
    hide_progress();
    std::printf("Fatal Error in decomp '%s'.%d,%d\n", job.out_file->out_name.c_str(), produced,
                static_cast<i32>(job.out_len));
    std::fflush(stdout);
    const auto from = static_cast<u32>(produced);
    if (from < job.out_len) std::memset(job.out_buf + from, 0, job.out_len - from);
}

/// Decodes the payload to `job.out_buf`, whole in any case, and frees it.
block_result decode_stream(block_job& job)
{
    i32 length = 0;
    const block_result result = run_codec(*find_decoder(job.parameters.method), job, length);
    job.in_alloc.reset();
    if (result != block_result::done) return result;
    if (static_cast<u32>(length) != job.out_len) report_length(job, length);
    return block_result::done;
}

} // namespace

block_result encode_block(buffer_pool& buffers, block_job& job, write_job& record)
{
    record = describe_block(job);
    record.buf = buffers.take(record_head_bytes + job.in_len + out_slack);
    if (!record.buf) return block_result::no_memory;
    job.out_buf = record.buf.get() + record_head_bytes;

    i32 length = 0;
    if (job.in_len != 0) {
        const block_result result = run_codec(*encoder_table[job.parameters.method], job, length);
        if (result != block_result::done) return result;
        if (static_cast<u32>(length) >= job.in_len) length = store_block(job);
    }
    job.in_alloc.reset();
    pack_record_head(record.buf.get(), {static_cast<u32>(length), 0});
    record.size = static_cast<u32>(record_head_bytes) + static_cast<u32>(length);
    return block_result::done;
}

block_result decode_block(buffer_pool& buffers, block_job& job, write_job& data)
{
    data = describe_block(job);
    data.block_mb = job.parameters.block_mb;
    data.size = job.out_len;
    if (job.out_len == job.in_len) { // stored: the payload is the filtered block
        data.buf = std::move(job.in_alloc);
    } else {
        data.buf = buffers.take(job.out_len + out_slack);
        if (!data.buf) return block_result::no_memory;
        job.out_buf = data.buf.get();
        const block_result result = decode_stream(job);
        if (result != block_result::done) return result;
    }
    run_filter(job.parameters.filter_flags, {data.buf.get(), data.size}, filter_use::undo);
    return block_result::done;
}

bool write_block(write_job& finished, u32 sequence)
{
    output_file& file = *finished.out_file;
    if (finished.block_mb == 0) {
        finished.buf[displacement_offset] = displacement_byte(finished.block_index, sequence);
    } else if (!file.seek(u64{finished.block_index} * (u64{finished.block_mb} << 20))) {
        return false;
    }
    return file.write(finished.buf.get(), finished.size);
}

} // namespace quarnex
