// pipeline/engine.h - state shared by the reading thread, the workers and the writer
//
//     driver (the caller's thread) --jobs--> workers --writes--> writer
//
// Without workers the driver codes and writes each block itself.  One engine serves both
// directions: each job states its own.
//
// A small file would wake each thread once, which takes longer than coding it.  So the driver
// collects small files that it has read, and a worker codes, writes and closes several in turn.
#pragma once

#include "common/platform/thread.h"
#include "pipeline/block_coder.h"
#include "pipeline/block_counter.h"
#include "pipeline/job_queue.h"

#include <algorithm>
#include <array>
#include <atomic>

namespace quarnex {

inline constexpr u32 max_workers = 16;

/// A file of one block of up to this many bytes is small.  Its buffers are too small to be pooled.
inline constexpr u32 max_small_file = (u32{256} << 10) - (u32{16} << 10);
static_assert(max_small_file + in_slack + file_header_bytes + record_head_bytes <
              buffer_pool::min_pooled_bytes);

/// Maximum number of blocks in memory: one for each worker, one being read and one being written.
/// A block that is being coded has two buffers, others have one.
constexpr u32 max_blocks(u32 workers)
{
    return workers + 2;
}
constexpr u32 max_buffers(u32 workers)
{
    return max_blocks(workers) + workers;
}

/// Maximum number of destinations that the writer has open at a time.
inline constexpr u32 max_destinations = 256;

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

    /// Asks the observer whether an existing destination may be replaced.
    [[nodiscard]] bool may_replace(const char* source_name, const char* destination) const
    {
        return watcher_.replace == nullptr ||
               watcher_.replace(watcher_.context, source_name, destination);
    }
    void tell_created(int descriptor) const
    {
        if (watcher_.created != nullptr) watcher_.created(watcher_.context, descriptor);
    }

    /// Records `reason` as the first failure, unless there was one before, and returns it.
    status fail(status reason);
    /// Records that a worker or the writer can't complete a file.  Its further blocks are dropped.
    void fail_on_thread(output_file& file, status reason);

    /// Returns the first failure of any file on any thread.  Final after wait_for_blocks().
    status first_failure() const { return first_failure_; }
    /// Returns the number of failures on workers and the writer so far.
    u32 thread_failures() const { return thread_failures_; }
    /// Counts a file that ended before its last block: the writer keeps its destination open.
    void count_unfinished() { ++unfinished_; }

    /// Queues a block for the workers.  Without workers, codes and writes it before returning.
    status submit(block_job job);
    /// Waits until the driver may take a buffer for one more block.
    void wait_for_room()
    {
        if (has_workers()) in_flight_.wait_for_fewer_than(max_blocks(thread_count));
    }
    /// Adds a small file, whose only block is `job`, to those that a worker gets together.  Returns
    /// false if it isn't small, or without workers or memory, or if the writer has no room for
    /// another destination, which it must report; `job` is unchanged then.
    [[nodiscard]] bool submit_file(block_job& job);
    /// Codes, writes and closes a small file, on a worker, and reports a failure.
    void run_file(scratch& memory, block_job& job);

    /// Codes a block with working memory from `memory` and reports a failure or a short block.
    status code(scratch& memory, block_job& job, write_job& finished, bool on_worker);
    /// Codes a block and writes it.  Reports a failure.
    status code_and_write(scratch& memory, block_job& job, bool on_worker);
    /// Records that a block was written or dropped, and releases the reference `file`.
    void mark_done(output_ref file, u32 block_index, direction mode);
    /// Queues the small files submitted so far, without waiting for more of them.
    void flush_files();
    /// Waits until all submitted small files are written or dropped.
    void wait_for_files();
    /// Waits until all submitted blocks and small files are written or dropped.
    void wait_for_blocks();

    /// Returns the pool for a buffer of `size` bytes.  Small buffers have a pool of their own, so
    /// that they don't count toward the limits for block buffers and don't evict idle ones.
    buffer_pool& pool_for(usize size)
    {
        return size < buffer_pool::min_pooled_bytes ? small_buffers_ : buffers;
    }

    const allocator& source;
    const u32 thread_count;
    buffer_pool buffers; // declared before the queues, so that it outlives their buffers

  private:
    buffer_pool small_buffers_;

  public:
    job_queue<block_job> jobs;
    job_queue<write_job> writes;

  private:
    status fail_to_write(const block_job& job, int cause, bool on_worker);

    const observer watcher_;
    const u32 files_per_job_; // maximum number of small files that a worker gets at a time
    scratch memory_;          // for a driver without workers
    block_counter in_flight_;
    block_counter files_in_flight_;
    // The small files being collected for a worker; used by the driver only.
    object_array<block_job> files_;
    u32 file_count_ = 0;
    u32 file_bytes_ = 0;
    u32 unfinished_ = 0; // files; used by the driver only
    std::atomic<u32> thread_failures_{0};
    std::atomic<status> first_failure_{status::done};
};

/// Thread body of a worker: codes blocks and processes small files from `jobs` until it takes the
/// sentinel.  Drops the blocks of a failed file and marks them as done, so that the driver doesn't
/// wait for them forever.
void run_worker(engine& pipeline);

/// Thread body of the writer: writes blocks from `writes` until it takes the sentinel.  Drops the
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
