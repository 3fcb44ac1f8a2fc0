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
    const char* const name; // for the classification; null for none
    file_parameters parameters;
    u64 size = 0; // at the start; later growth is ignored
    u32 block_count = 0;

    /// Reads the next block into a new buffer and zeroes the slack after it.
    status read_block(block_job& job, u32 length);
    /// Classifies the file by its first block and writes the header.
    status write_header(const codec_job& first);
    /// Reads the next block, filters it and fills in the job; writes the header before block 0.
    status take_block(block_job& job, u32 length);
    status run();
};

status compression::read_block(block_job& job, u32 length)
{
    job.in_alloc = file.pipeline().buffers.take(usize{length} + in_slack);
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

status compression::write_header(const codec_job& first)
{
    if (name != nullptr)
        classify_file({first.in_buf, std::min<usize>(first.in_len, sample_bytes)}, name,
                      parameters);
    const auto header = pack_file_header({size, parameters});
    const int error = file.destination()->file.write(header.data(), header.size());
    return error == 0 ? status::done : file.fail_to_write(error);
}

status compression::take_block(block_job& job, u32 length)
{
    if (const status read = read_block(job, length); read != status::done) return read;
    if (job.block_index == 0) {
        if (const status written = write_header(job.codec); written != status::done) return written;
    }
    job.set_parameters(parameters);
    run_filter(parameters.filter_flags, {job.in_alloc.get(), job.codec.in_len}, filter_use::apply);
    return status::done;
}

status compression::run()
{
    const u64 block_size = parameters.block_size();
    u64 remaining = size;
    for (u32 index = 0;; ++index) {
        block_job job;
        job.mode = direction::compress;
        job.block_index = index;
        job.block_count = block_count;
        job.out_file = file.destination();
        const auto wanted = static_cast<u32>(std::min(block_size, remaining));
        if (const status taken = take_block(job, wanted); taken != status::done) return taken;
        const u32 length = job.codec.in_len;
        const status submitted = file.pipeline().submit(std::move(job));
        if (submitted != status::done) return submitted;
        remaining -= length;
        if (length < wanted) {
            file.tell({.kind = event_kind::source_shrank});
            return status::done;
        }
        // Another thread has failed the file and drops its blocks.
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
    return result == status::done ? file.close_destination() : result;
}

} // namespace quarnex
