#include "format/container.h"
#include "format/filters.h"
#include "pipeline/block_coder.h"
#include "pipeline/drivers.h"
#include "pipeline/errors.h"
#include "pipeline/output_file.h"
#include "pipeline/progress.h"
#include "pipeline/source_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace quarnex {
namespace {

/// Codes a block and writes its record on this thread.
i32 finish_in_place(pipeline_state& state, block_job& job)
{
    write_job record;
    switch (encode_block(state.buffers, job, record)) {
    case block_result::done:
        break;
    case block_result::not_started:
        return driver_failed;
    case block_result::no_memory:
        return report_fatal(error_no_memory);
    case block_result::failed:
        hide_progress();
        std::fputs("compression error\n", stdout);
        std::fflush(stdout);
        return driver_failed;
    }
    return write_block(record, job.block_index) ? driver_done : report_fatal(error_write);
}

/// One file while it is read and handed on, block by block.
struct compression {
    pipeline_state& state;
    const std::string& source_name;
    source_file source;
    std::shared_ptr<output_file> destination;
    file_parameters parameters;
    u64 size = 0; // as it was at the start: what the file does later doesn't change it
    u64 block_size = 0;
    u32 block_count = 0;

    /// Reads the next block into a buffer of its own, with zeros behind it.
    i32 read_block(block_job& job, u32 length);
    /// Completes the parameters, now that the first block is there, and writes the header.
    i32 write_header(const block_job& first);
    /// Reads the next block and makes it what an encoder takes.
    i32 take_block(block_job& job, u32 length);
    i32 hand_on(block_job job);
    i32 run();
};

i32 compression::read_block(block_job& job, u32 length)
{
    job.in_alloc = state.buffers.take(usize{length} + in_slack);
    if (!job.in_alloc) return report_fatal(error_no_memory);
    u8* const block = job.in_alloc.get();
    job.in_len = static_cast<u32>(std::fread(block, 1, length, source.get()));
    if (has_failed(source, source_name)) return driver_failed;
    std::memset(block + job.in_len, 0, in_slack);
    job.in_buf = block;
    return driver_done;
}

i32 compression::write_header(const block_job& first)
{
    if (state.classify != nullptr) {
        const usize size_of_sample = std::min<usize>(first.in_len, sample_bytes);
        state.classify({first.in_buf, size_of_sample}, source_name, parameters);
    }
    const auto header = pack_file_header({size, parameters});
    return destination->write(header.data(), header.size()) ? driver_done
                                                            : report_fatal(error_write);
}

i32 compression::take_block(block_job& job, u32 length)
{
    if (const i32 result = read_block(job, length); result < 0) return result;
    if (job.block_index == 0) {
        if (const i32 result = write_header(job); result < 0) return result;
    }
    job.parameters = parameters;
    run_filter(parameters.filter_flags, {job.in_alloc.get(), job.in_len}, filter_use::apply);
    return driver_done;
}

i32 compression::hand_on(block_job job)
{
    if (state.thread_count == 0) return finish_in_place(state, job);
    destination->window.wait_to_enter(job.block_index);
    state.enqueue(std::move(job));
    return driver_done;
}

i32 compression::run()
{
    progress_line progress(source_name, size);
    u64 remaining = size;
    for (u32 index = 0;; ++index) {
        block_job job;
        job.block_index = index;
        job.block_count = block_count;
        job.out_file = destination;
        const u32 wanted = static_cast<u32>(std::min(block_size, remaining));
        if (const i32 result = take_block(job, wanted); result < 0) return result;
        const u32 length = job.in_len;
        if (const i32 result = hand_on(std::move(job)); result < 0) return result;
        remaining -= length;
        progress.advance(length);
        if (length < wanted) {
            hide_progress();
            std::fprintf(stderr, "input file '%s' has become shorter\n", source_name.c_str());
            return driver_done;
        }
        if (remaining == 0) return driver_done;
    }
}

} // namespace

i32 compress_file(pipeline_state& state, const file_parameters& job_template,
                  const std::string& source, const std::string& destination)
{
    if (has_suffix(source.c_str())) return driver_done;
    compression file{state, source, open_source(source), nullptr, job_template};
    if (!file.source) return driver_failed;
    apply_defaults(file.parameters, state.defaults);
    file.destination = state.create_destination(destination + file_suffix);
    if (!file.destination) return driver_ends_run;

    file.size = file_size(file.source.get());
    file.block_size = file.parameters.block_size();
    file.block_count = static_cast<u32>(count_blocks(file.size, file.block_size));
    const i32 result = file.run();
    // With workers the writer closes the destination behind its last block.
    if (result < 0 || state.thread_count != 0) return result;
    return file.destination->close() ? result : report_fatal(error_write);
}

} // namespace quarnex
