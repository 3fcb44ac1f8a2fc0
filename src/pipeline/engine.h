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

class engine {
  public:
    /// An engine for `workers` workers (0 to max_workers; 0 means that no thread is used), with
    /// memory from `source`, which outlives it.  start() is called next.
    engine(const allocator& source, u32 workers, const observer& watcher);
    /// Lets all blocks in flight finish, then ends the threads.
    ~engine();
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    /// Starts the workers and the writer, and tells of each that doesn't start.  False if no work
    /// can be done: not one worker, or no writer.
    [[nodiscard]] bool start();

    /// Waits until all blocks that were submitted are written or dropped.
    void wait_for_blocks() { in_flight_.wait_for_none(); }

    /// The first failure of any file, by whichever thread.  Final after wait_for_blocks().
    status first_failure() const { return first_failure_; }
    /// Failures that workers and the writer have met so far.
    u32 thread_failures() const { return thread_failures_; }

    // For the drivers.

    bool has_workers() const { return thread_count_ != 0; }
    const allocator& source() const { return source_; }
    buffer_pool& buffers() { return buffers_; }

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

    /// Hands a block to the workers.  Without workers it is coded and written before the call ends.
    status submit(block_job job);

  private:
    status finish_in_place(block_job& job);
    /// Codes a block, and tells what went wrong.
    status code(scratch& memory, block_job& job, write_job& finished, bool on_worker);
    /// Notes a failure of a worker or the writer.
    void fail_on_thread(output_file& file, status reason);
    /// Notes that a block has been written or dropped.
    void mark_done(output_file& file, u32 block_index, direction mode);
    void run_worker();
    void run_writer();

    const allocator& source_;
    const u32 thread_count_;
    const observer watcher_;
    buffer_pool buffers_; // before all that holds buffers
    scratch memory_;      // of a driver without workers
    job_queue<block_job> jobs_;
    job_queue<write_job> writes_;
    block_counter in_flight_;
    std::atomic<u32> thread_failures_{0};
    std::atomic<status> first_failure_{status::done};
    std::array<system_thread, max_workers> workers_;
    system_thread writer_;
};

} // namespace quarnex
