#include "pipeline/engine.h"

#include <algorithm>
#include <utility>

namespace quarnex {

engine::engine(const allocator& source, u32 workers, const observer& watcher)
    : source_(source), thread_count_(std::min(workers, max_workers)), watcher_(watcher),
      buffers_(source, 2 * usize{thread_count_} + 3), memory_(source),
      jobs_(std::max(thread_count_, 1U)), writes_(std::max(thread_count_, 1U))
{
}

engine::~engine()
{
    for (const system_thread& worker : workers_) {
        if (worker.started()) jobs_.enqueue(block_job{});
    }
    for (system_thread& worker : workers_) worker.join();
    // All that the workers have produced lies before the writer's end.
    if (writer_.started()) writes_.enqueue(write_job{});
    writer_.join();
}

bool engine::start()
{
    const auto start_thread = [this](system_thread& thread, void (*body)(void*)) {
        const bool started = thread.start(body, this);
        if (!started) tell({.kind = event_kind::thread_unstarted});
        return started;
    };
    if (thread_count_ == 0) return true;
    u32 started = 0;
    for (u32 i = 0; i < thread_count_; ++i) {
        const auto body = [](void* self) { static_cast<engine*>(self)->run_worker(); };
        if (start_thread(workers_[i], body)) ++started;
    }
    const auto body = [](void* self) { static_cast<engine*>(self)->run_writer(); };
    const bool writes = start_thread(writer_, body);
    if (started != 0 && writes) return true;
    fail(status::no_thread);
    return false;
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

void engine::mark_done(output_file& file, u32 block_index, direction mode)
{
    if (mode == direction::compress) file.window.mark_done(block_index);
    in_flight_.leave();
}

status engine::submit(block_job job)
{
    if (!has_workers()) return finish_in_place(job);
    if (job.mode == direction::compress) job.out_file->window.wait_to_enter(job.block_index);
    in_flight_.enter();
    jobs_.enqueue(std::move(job));
    return status::done;
}

status engine::finish_in_place(block_job& job)
{
    write_job finished;
    if (const status coded = code(memory_, job, finished, false); coded != status::done)
        return fail(coded);
    const int error = write_block(finished, job.block_index);
    if (error == 0) return status::done;
    tell({.kind = event_kind::destination_unwritten,
          .cause = error,
          .name = job.out_file->out_name()});
    return fail(status::write_failed);
}

status engine::code(scratch& memory, block_job& job, write_job& finished, bool on_worker)
{
    const block_result result = code_block(buffers_, memory, job, finished);
    const bool compresses = job.mode == direction::compress;
    event happened{.kind = event_kind::no_memory,
                   .name = job.out_file->source_name(),
                   .block = job.block_index,
                   .mode = job.mode,
                   .lack = result.lack,
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

void engine::run_worker()
{
    scratch memory(source_);
    for (;;) {
        block_job job = jobs_.dequeue();
        if (!job.out_file) return;
        output_file& file = *job.out_file;
        if (!file.failed()) {
            write_job finished;
            const status coded = code(memory, job, finished, true);
            if (coded == status::done) {
                writes_.enqueue(std::move(finished));
                continue;
            }
            fail_on_thread(file, coded);
        }
        mark_done(file, job.block_index, job.mode);
    }
}

} // namespace quarnex
