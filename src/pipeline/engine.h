// pipeline/engine.h - the reading thread, the workers and the writer, and what they share
//
//     driver (the caller's thread) --jobs--> workers --writes--> writer
//
// Without workers the driver codes and writes each block itself.  One engine serves both
// directions: each job names its own.
#pragma once

#include "common/platform/thread.h"
#include "pipeline/block_coder.h"
#include "pipeline/block_counter.h"
#include "pipeline/job_queue.h"

#include <array>
#include <atomic>

namespace quarnex {

inline constexpr u32 max_workers = 16;

/// What the threads of an engine share.
class engine {
  public:
    /// An engine for `workers` workers (0 to max_workers; 0 means that no thread is used), with
    /// memory from `source`, which outlives it.
    engine(const allocator& source, u32 workers, const observer& watcher);
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    bool has_workers() const { return thread_count != 0; }

    /// Tells the observer.
    void tell(const event& happened) const
    {
        if (watcher_.tell != nullptr) watcher_.tell(watcher_.context, happened);
    }
    /// Tells the observer how far the source has been read.  False if the file is to be cancelled.
    [[nodiscard]] bool advance(u64 done, u64 total) const
    {
        return watcher_.advance == nullptr || watcher_.advance(watcher_.context, done, total);
    }

    /// Notes that a file can't be completed, and returns the reason.
    status fail(status reason);
    /// Notes that a worker or the writer can't complete a file.  Its further blocks are dropped.
    void fail_on_thread(output_file& file, status reason);

    /// The first failure of any file, on whichever thread.  Final after wait_for_blocks().
    status first_failure() const { return first_failure_; }
    /// Failures that workers and the writer have met so far.
    u32 thread_failures() const { return thread_failures_; }

    /// Hands a block to the workers.  Without workers it is coded and written before the call ends.
    status submit(block_job job);
    /// Codes a block in the memory of `memory`, and tells what goes wrong.
    status code(scratch& memory, block_job& job, write_job& finished, bool on_worker);
    /// Notes that a block has been written or dropped.
    void mark_done(output_file& file, u32 block_index, direction mode);
    /// Waits until all blocks that were submitted are written or dropped.
    void wait_for_blocks() { in_flight_.wait_for_none(); }

    const allocator& source;
    const u32 thread_count;
    buffer_pool buffers; // before all that holds buffers
    job_queue<block_job> jobs;
    job_queue<write_job> writes;

  private:
    status finish_in_place(block_job& job);

    const observer watcher_;
    scratch memory_; // of a driver without workers
    block_counter in_flight_;
    std::atomic<u32> thread_failures_{0};
    std::atomic<status> first_failure_{status::done};
};

/// A worker: codes blocks from `jobs` until one has no file.  Blocks of a file that has failed are
/// dropped, so that nobody waits for them.
void run_worker(engine& of);

/// The writer: writes blocks from `writes` until one has no buffer.  Blocks of a file that has
/// failed are dropped.
void run_writer(engine& of);

/// The threads of an engine, while they run.
class engine_threads {
  public:
    /// Starts the workers and the writer, and tells of each that doesn't start; ready() then says
    /// whether work can go on.
    explicit engine_threads(engine& of);
    /// Lets all blocks in flight finish, then ends the threads.
    ~engine_threads();
    engine_threads(const engine_threads&) = delete;
    engine_threads& operator=(const engine_threads&) = delete;

    /// Whether the writer and one worker run, or no threads are wanted.
    bool ready() const { return engine_.thread_count == 0 || (started_ != 0 && writer_.started()); }

  private:
    bool start(system_thread& thread, void (*body)(void*));

    engine& engine_;
    u32 started_ = 0; // workers
    std::array<system_thread, max_workers> workers_;
    system_thread writer_;
};

} // namespace quarnex
