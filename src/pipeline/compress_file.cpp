#include "format/container.h"
#include "format/file_type.h"
#include "format/filters.h"
#include "pipeline/driver_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace quarnex {
namespace {

/// A file is classified by up to this many bytes of its first block.
constexpr usize sample_bytes = usize{1} << 20;

/// State of one file while its blocks are read and submitted.
struct compression {
    driver_file file;
    const char* const name; // of the source, for its classification; null: don't classify
    file_parameters parameters;
    u64 size = 0; // of the source when it was opened; later growth is ignored
    u32 block_count = 0;
    u32 records = 0; // number of submitted ones

    /// Reads the next block into a new buffer and zeroes the slack after it.
    status read_block(block_job& job, u32 length);
    /// Classifies the file by its first block and packs the header.
    void make_header(block_job& first);
    /// Reads block `index` of up to `length` bytes, filters it and fills in the job.  Classifies
    /// the file by block 0, whose job receives the header.
    status take_block(block_job& job, u32 index, u32 length);
    /// Writes the header before the first block is submitted, since the writer may write the record
    /// of another block first.
    status write_header(block_job& first);
    /// Submits the block, or the whole file if it is small.
    status submit(block_job job);
    status run();
};

/// Room for a block and what its head and its codec need; the same for input and output, so that
/// either can take the buffers of the other.
usize buffer_bytes(u64 length)
{
    static_assert(in_slack > out_slack);
    return file_header_bytes + record_head_bytes + static_cast<usize>(length) + in_slack;
}

status compression::read_block(block_job& job, u32 length)
{
    job.in_alloc = file.pipeline().pool_for(job.buffer_bytes).take(job.buffer_bytes);
    if (!job.in_alloc) return file.fail(event_kind::no_memory, status::no_memory);
    u8* const block = job.in_alloc.get();
    const read_result got = file.source().read(block, length);
    if (got.error != 0)
        return file.fail({.kind = event_kind::source_unread, .cause = got.error},
                         status::read_failed);
    job.codec.in_len = static_cast<u32>(got.count);
    std::memset(block + got.count, 0, in_slack);
    job.codec.in_buf = block;
    return status::done;
}

void compression::make_header(block_job& first)
{
    if (name != nullptr)
        classify_file({first.codec.in_buf, std::min<usize>(first.codec.in_len, sample_bytes)}, name,
                      parameters);
    first.header = pack_file_header({size, parameters});
    first.has_header = true;
}

status compression::take_block(block_job& job, u32 index, u32 length)
{
    job.mode = direction::compress;
    job.block_index = index;
    job.block_count = block_count;
    job.out_file = file.destination();
    job.buffer_bytes = buffer_bytes(std::min(size, parameters.block_size()));
    if (const status read = read_block(job, length); read != status::done) return read;
    if (index == 0) make_header(job);
    job.set_parameters(parameters);
    run_filter(parameters.filter_flags, {job.in_alloc.get(), job.codec.in_len}, filter_use::apply);
    return status::done;
}

status compression::write_header(block_job& first)
{
    first.has_header = false;
    const int error = file.destination()->file.write(first.header.data(), first.header.size());
    return error == 0 ? status::done : file.fail_to_write(error);
}

status compression::submit(block_job job)
{
    engine& pipeline = file.pipeline();
    if (job.has_header && pipeline.has_workers()) {
        if (const status written = write_header(job); written != status::done) return written;
    }
    if (block_count <= 1 && pipeline.submit_file(job)) return status::done;
    return pipeline.submit(std::move(job));
}

status compression::run()
{
    const u64 block_size = parameters.block_size();
    u64 remaining = size;
    for (;;) {
        file.pipeline().wait_for_room();
        block_job job;
        const auto wanted = static_cast<u32>(std::min(block_size, remaining));
        if (const status taken = take_block(job, records, wanted); taken != status::done)
            return taken;
        const u32 length = job.codec.in_len;
        const status submitted = submit(std::move(job));
        if (submitted != status::done) return submitted;
        ++records;
        remaining -= length;
        if (length < wanted) {
            file.tell({.kind = event_kind::source_shrank});
            return status::done;
        }
        // Stop if another thread has marked the file as failed: it would drop further blocks.
        if (remaining == 0 || file.destination()->failed()) return status::done;
        const status advanced = file.advance(size - remaining, size);
        if (advanced != status::done) return advanced;
    }
}

} // namespace

status compress_file(engine& pipeline, const file_names& names, file_parameters parameters,
                     bool classifies)
{
    compression work{
        {pipeline, names, direction::compress}, classifies ? names.source : nullptr, parameters};
    driver_file& file = work.file;
    if (const status opened = file.open_source(); opened != status::done) return opened;
    if (const status created = file.create_destination(); created != status::done) return created;
    work.size = file.source().size();
    work.block_count = static_cast<u32>(count_blocks(work.size, parameters.block_size()));
    const status result = work.run();
    if (result != status::done) return result;
    return file.close_destination(work.records, work.block_count);
}

} // namespace quarnex
