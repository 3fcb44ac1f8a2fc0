// pipeline/engine.h - state shared by the reading thread, the workers and the writer
//
//     driver (the caller's thread) --jobs--> workers --writes--> writer
//
// Without workers the driver codes and writes each block itself.  One engine serves both
// directions: each job states its own.
#pragma once

#include "common/platform/thread.h"
#include "pipeline/block_coder.h"
#include "pipeline/block_counter.h"
#include "pipeline/job_queue.h"

#include <array>
#include <atomic>

namespace quarnex {

inline constexpr u32 max_workers = 16;

/// The queues, buffers and failure state that the threads share.
class engine {
  public:
    /// Creates an engine for `workers` workers (0 to max_workers; 0: no threads).  `source` must
    /// outlive it.
    engine(const allocator& source, u32 workers, const observer& watcher);
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    bool has_workers() const { return thread_count != 0; }

    /// Reports an event to the observer.
    void tell(const event& happened) const
    {
        if (watcher_.tell != nullptr) watcher_.tell(watcher_.context, happened);
    }
    /// Reports to the observer how much of the source was read.  Returns false to cancel the file.
    [[nodiscard]] bool advance(u64 done, u64 total) const
    {
        return watcher_.advance == nullptr || watcher_.advance(watcher_.context, done, total);
    }

    /// Records `reason` as the first failure, unless there was one before, and returns it.
    status fail(status reason);
    /// Records that a worker or the writer can't complete a file.  Its further blocks are dropped.
    void fail_on_thread(output_file& file, status reason);

    /// Returns the first failure of any file on any thread.  Final after wait_for_blocks().
    status first_failure() const { return first_failure_; }
    /// Returns the number of failures on workers and the writer so far.
    u32 thread_failures() const { return thread_failures_; }

    /// Queues a block for the workers.  Without workers, codes and writes it before returning.
    status submit(block_job job);
    /// Codes a block with working memory from `memory` and reports a failure or a short block.
    status code(scratch& memory, block_job& job, write_job& finished, bool on_worker);
    /// Records that a block was written or dropped, and releases the reference `file`.
    void mark_done(output_ref file, u32 block_index, direction mode);
    /// Waits until all submitted blocks are written or dropped.
    void wait_for_blocks() { in_flight_.wait_for_none(); }

    const allocator& source;
    const u32 thread_count;
    buffer_pool buffers; // declared before the queues, so that it outlives their buffers
    job_queue<block_job> jobs;
    job_queue<write_job> writes;

  private:
    status code_and_write(block_job& job);

    const observer watcher_;
    scratch memory_; // for a driver without workers
    block_counter in_flight_;
    std::atomic<u32> thread_failures_{0};
    std::atomic<status> first_failure_{status::done};
};

/// Thread body of a worker: codes blocks from `jobs` until a job has no file.  Drops and marks as
/// done the blocks of a failed file, so that the driver never waits for them.
void run_worker(engine& pipeline);

/// Thread body of the writer: writes blocks from `writes` until one has no buffer.  Drops the
/// blocks of a failed file.
void run_writer(engine& pipeline);

/// The running threads of an engine.
class engine_threads {
  public:
    /// Starts the workers and the writer and reports each thread that fails to start.  Check
    /// ready() afterwards.
    explicit engine_threads(engine& pipeline);
    /// Waits for all blocks in flight, then ends the threads.
    ~engine_threads();
    engine_threads(const engine_threads&) = delete;
    engine_threads& operator=(const engine_threads&) = delete;

    /// Returns true if the writer and at least one worker run, or if the engine uses no threads.
    bool ready() const { return engine_.thread_count == 0 || (started_ != 0 && writer_.started()); }

  private:
    bool start(system_thread& thread, void (*body)(void*));

    engine& engine_;
    u32 started_ = 0; // running workers
    std::array<system_thread, max_workers> workers_;
    system_thread writer_;
};

} // namespace quarnex
