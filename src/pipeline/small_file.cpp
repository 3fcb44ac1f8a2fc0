// pipeline/small_file.cpp - a small file on a worker
#include "pipeline/compression.h"

#include <utility>

namespace quarnex {
namespace {

/// Reads the source, compresses it and writes the destination.
status compress(driver_file& file, scratch& memory, const small_file& small)
{
    compression work{file, small.classifies ? file.destination()->source_name() : nullptr,
                     small.parameters, small.size, small.block_count};
    block_job job;
    if (const status taken = work.take_block(job, 0, small.size); taken != status::done) {
        if (taken == status::read_failed) file.pipeline().count_unread_file();
        return taken;
    }
    const u32 length = job.codec.in_len;
    const status written = file.pipeline().code_and_write(memory, job, true);
    if (written == status::done && length < small.size)
        file.tell({.kind = event_kind::source_shrank});
    return written;
}

/// Restores the payload and writes the destination.
status decompress(driver_file& file, scratch& memory, small_file& small)
{
    block_job job;
    job.mode = direction::decompress;
    job.set_parameters(small.parameters);
    job.block_count = small.block_count;
    job.out_file = file.destination();
    job.codec.in_buf = small.payload.get();
    job.codec.in_len = small.size;
    job.codec.out_len = small.length;
    job.in_alloc = std::move(small.payload);
    return file.pipeline().code_and_write(memory, job, true);
}

} // namespace

void run_small_file(engine& pipeline, scratch& memory, small_file& small)
{
    driver_file file(pipeline, small);
    status result = small.mode == direction::compress ? compress(file, memory, small)
                                                      : decompress(file, memory, small);
    if (result == status::done) result = file.close_destination();
    // A read error doesn't count as a failure of the thread: see count_unread_file().
    if (result != status::done && result != status::read_failed)
        pipeline.fail_on_thread(*file.destination(), result);
    pipeline.mark_file_done();
}

} // namespace quarnex
