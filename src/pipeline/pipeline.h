// pipeline/pipeline.h - the main thread, the workers and the writer, and what they share
//
//     driver (main thread) --jobs--> workers --writes--> writer
//
// Without workers the driver codes and writes each block itself.
#pragma once

#include "common/platform.h"
#include "pipeline/codec.h"
#include "pipeline/codec_table.h"
#include "pipeline/job_queue.h"

#include <atomic>
#include <vector>

namespace quarnex {

enum class direction { compress, decompress };

/// What all threads of a run share.
struct pipeline_state {
    /// `workers` is 0 to max_workers; 0 means that no thread is used.
    explicit pipeline_state(u32 workers)
        : thread_count(workers), buffers(2 * usize{workers} + 3), jobs(workers != 0 ? workers : 1),
          writes(workers != 0 ? workers : 1)
    {
    }

    const u32 thread_count;
    level_defaults defaults;
    buffer_pool buffers; // before all that holds buffers
    job_queue<block_job> jobs;
    job_queue<write_job> writes;
    std::atomic<i32> abort_count{0}; // failures seen by workers and the writer
};

inline constexpr u32 max_workers = 16;

/// A worker: codes blocks from `jobs` until one has the method end_of_jobs.  After a failure it
/// only takes blocks and drops them, so that nobody waits for it.
void run_worker(pipeline_state& state, direction way);

/// The writer: writes blocks from `writes` until one has no buffer.  After a failure it drops them.
void run_writer(pipeline_state& state);

/// The threads of a run, while they run.
class pipeline_threads {
  public:
    /// Starts the workers and the writer that `state` asks for.  Prints "Error thread_create.\n"
    /// for each that doesn't start; `ready()` then tells whether work can go on.
    pipeline_threads(pipeline_state& state, direction way);

    /// Lets all blocks that are under way finish, then ends the threads.
    ~pipeline_threads();
    pipeline_threads(const pipeline_threads&) = delete;
    pipeline_threads& operator=(const pipeline_threads&) = delete;

    /// Whether the writer and one worker run, or no threads are wanted.
    bool ready() const { return ready_; }

  private:
    void stop_workers();
    void stop_writer();

    pipeline_state& state_;
    std::vector<system_thread> workers_;
    std::vector<system_thread> writer_; // one or none
    bool ready_ = true;
};

} // namespace quarnex
