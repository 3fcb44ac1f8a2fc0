#include "pipeline/engine.h"

#include "common/platform/file.h"

#include <algorithm>
#include <utility>

namespace quarnex {
namespace {

/// Returns how many small files a worker gets at a time.  Each has an open destination, and there
/// are up to 2n + 1 groups of them with n workers: at work, queued, being collected.
u32 files_per_job(u32 workers)
{
    const u32 open_files = std::min(max_open_files() / 4, 128U);
    return std::clamp(open_files / (2 * workers + 1), 1U, 16U);
}

} // namespace

engine::engine(const allocator& memory_source, u32 workers, const observer& watcher)
    : source(memory_source), thread_count(std::min(workers, max_workers)),
      buffers(memory_source, max_buffers(thread_count), max_buffers(thread_count)),
      small_buffers_(memory_source, 0), jobs(std::max(thread_count, 1U)),
      writes(std::max(thread_count, 1U)), watcher_(watcher),
      files_per_job_(files_per_job(thread_count)), memory_(memory_source)
{
}

status engine::fail(status reason)
{
    status none = status::done;
    first_failure_.compare_exchange_strong(none, reason);
    return reason;
}

void engine::fail_on_thread(output_file& file, status reason)
{
    fail(reason);
    file.fail(reason);
    ++thread_failures_;
}

void engine::mark_done(output_ref file, u32 block_index, direction mode)
{
    if (mode == direction::compress) file->window.mark_done(block_index);
    file = {}; // before leave(): a thread that waits for the blocks finds the file released
    in_flight_.leave();
}

status engine::submit(block_job job)
{
    if (!has_workers()) return code_and_write(memory_, job, false);
    if (job.mode == direction::compress) job.out_file->window.wait_to_enter(job.block_index);
    flush_files(); // they need not wait for a large file
    in_flight_.enter();
    jobs.enqueue(std::move(job));
    return status::done;
}

bool engine::submit_file(block_job& job)
{
    const bool is_small = std::max(job.codec.in_len, job.codec.out_len) <= max_small_file &&
                          job.buffer_bytes < buffer_pool::min_pooled_bytes;
    if (!has_workers() || !is_small || unfinished_ >= max_destinations) return false;
    if (files_.size() == 0 && !files_.make(source, files_per_job_)) return false;
    files_in_flight_.enter();
    file_bytes_ += job.codec.in_len;
    files_[file_count_++] = std::move(job);
    if (file_count_ == files_.size() || file_bytes_ >= max_small_file) flush_files();
    return true;
}

void engine::flush_files()
{
    if (file_count_ == 0) return;
    block_job job;
    job.files = std::move(files_);
    job.file_count = std::exchange(file_count_, 0);
    file_bytes_ = 0;
    jobs.enqueue(std::move(job));
}

void engine::wait_for_files()
{
    flush_files();
    files_in_flight_.wait_for_none();
}

void engine::wait_for_blocks()
{
    wait_for_files();
    in_flight_.wait_for_none();
}

void engine::run_file(scratch& memory, block_job& job)
{
    status result = code_and_write(memory, job, true);
    if (result == status::done) {
        const int error = job.out_file->file.close();
        if (error != 0) result = fail_to_write(job, error, true);
    }
    if (result != status::done) fail_on_thread(*job.out_file, result);
    job = {}; // before leave(): a thread that waits for the files finds them closed
    files_in_flight_.leave();
}

status engine::fail_to_write(const block_job& job, int cause, bool on_worker)
{
    tell({.kind = event_kind::destination_unwritten,
          .cause = cause,
          .name = job.out_file->out_name(),
          .block = job.block_index,
          .mode = job.mode,
          .on_worker = on_worker});
    return fail(status::write_failed);
}

status engine::code_and_write(scratch& memory, block_job& job, bool on_worker)
{
    write_job finished;
    if (const status coded = code(memory, job, finished, on_worker); coded != status::done)
        return fail(coded);
    const int error = write_block(finished, job.block_index);
    return error == 0 ? status::done : fail_to_write(job, error, on_worker);
}

status engine::code(scratch& memory, block_job& job, write_job& finished, bool on_worker)
{
    const block_result result = code_block(pool_for(job.buffer_bytes), memory, job, finished);
    if (result.status != block_status::done && job.has_header) {
        // The observer may end the process: leave the file as if the header had been written first.
        const int error = job.out_file->file.write(job.header.data(), job.header.size());
        if (error != 0) return fail_to_write(job, error, on_worker);
    }
    const bool compresses = job.mode == direction::compress;
    event happened{.kind = event_kind::no_memory,
                   .name = job.out_file->source_name(),
                   .block = job.block_index,
                   .mode = job.mode,
                   .codec_error = result.codec_error,
                   .on_worker = on_worker};
    if (result.status != block_status::done) {
        if (result.status == block_status::uncoded) happened.kind = event_kind::block_uncoded;
        tell(happened);
        return status::no_memory;
    }
    if (!compresses && result.produced != job.codec.out_len) {
        happened.kind = event_kind::block_short;
        happened.name = job.out_file->out_name();
        happened.wanted = job.codec.out_len;
        happened.got = result.produced;
        tell(happened);
    }
    return status::done;
}

void run_worker(engine& pipeline)
{
    scratch memory(pipeline.source);
    for (;;) {
        block_job job = pipeline.jobs.dequeue();
        for (u32 i = 0; i < job.file_count; ++i) pipeline.run_file(memory, job.files[i]);
        if (job.file_count != 0) continue;
        if (!job.out_file) return;
        output_file& file = *job.out_file;
        if (!file.failed()) {
            write_job finished;
            const status coded = pipeline.code(memory, job, finished, true);
            if (coded == status::done) {
                pipeline.writes.enqueue(std::move(finished));
                continue;
            }
            pipeline.fail_on_thread(file, coded);
        }
        job.in_alloc.reset();
        pipeline.mark_done(std::move(job.out_file), job.block_index, job.mode);
    }
}

engine_threads::engine_threads(engine& pipeline) : engine_(pipeline)
{
    if (engine_.thread_count == 0) return;
    const auto work = [](void* shared) { run_worker(*static_cast<engine*>(shared)); };
    const auto write = [](void* shared) { run_writer(*static_cast<engine*>(shared)); };
    for (u32 i = 0; i < engine_.thread_count; ++i) started_ += start(workers_[i], work) ? 1 : 0;
    start(writer_, write);
    if (!ready()) engine_.fail(status::no_thread);
}

bool engine_threads::start(system_thread& thread, void (*body)(void*))
{
    const bool started = thread.start(body, &engine_);
    if (!started) engine_.tell({.kind = event_kind::thread_unstarted});
    return started;
}

engine_threads::~engine_threads()
{
    if (started_ != 0) engine_.flush_files();
    for (u32 i = 0; i < started_; ++i) engine_.jobs.enqueue(block_job{});
    for (system_thread& worker : workers_) worker.join();
    // The workers have ended, so the writer's sentinel follows everything they queued.
    if (writer_.started()) engine_.writes.enqueue(write_job{});
    writer_.join();
}

} // namespace quarnex
