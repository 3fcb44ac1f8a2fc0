// pipeline/pipeline.h - the main thread, the workers and the writer, and what they share
//
//     driver (main thread) --jobs--> workers --writes--> writer
//
// Without workers the driver codes and writes each block itself.
#pragma once

#include "common/platform.h"
#include "pipeline/block_counter.h"
#include "pipeline/codec.h"
#include "pipeline/codec_table.h"
#include "pipeline/job_queue.h"

#include <atomic>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quarnex {

enum class direction { compress, decompress };

/// Sets what depends on a file's kind in its `parameters`: lit_ctx_bits and filter_flags.  `sample`
/// is the start of the file.
using file_classifier = void (*)(std::span<const u8> sample, std::string_view name,
                                 file_parameters& parameters);

/// Bytes in a sample, where a file's first block has so many.
inline constexpr usize sample_bytes = usize{1} << 20;

/// What all threads of a run share.
struct pipeline_state {
    /// `workers` is 0 to max_workers; 0 means that no thread is used.
    explicit pipeline_state(u32 workers);

    /// Hands a block to the workers.
    void enqueue(block_job job);

    /// Notes that the block of that number of `file` has been written or given up.
    void settle(output_file& file, u32 block_index, direction mode);

    /// Creates a destination.  Null, and a message on standard error, if that fails.  A name that
    /// has been a destination before waits until all of the earlier file is written.
    std::shared_ptr<output_file> create_destination(const std::string& name);

    const u32 thread_count;
    level_defaults defaults;
    /// Asked once for each file that is compressed; null leaves the parameters alone.
    file_classifier classify = nullptr;
    buffer_pool buffers; // before all that holds buffers
    job_queue<block_job> jobs;
    job_queue<write_job> writes;
    std::atomic<i32> abort_count{0}; // failures seen by workers and the writer

  private:
    block_counter under_way_;
    std::set<file_identity> destinations_; // of all files so far
};

inline constexpr u32 max_workers = 16;

/// A worker: codes blocks from `jobs` until one has no file.  After a failure it
/// only takes blocks and drops them, so that nobody waits for it.
void run_worker(pipeline_state& state, direction mode);

/// The writer: writes blocks from `writes` until one has no buffer.  After a failure it drops them.
void run_writer(pipeline_state& state);

/// The threads of a run, while they run.
class pipeline_threads {
  public:
    /// Starts the workers and the writer that `state` asks for.  Prints "Error thread_create.\n"
    /// for each that doesn't start; `ready()` then tells whether work can go on.
    pipeline_threads(pipeline_state& state, direction mode);

    /// Lets all blocks that are under way finish, then ends the threads.
    ~pipeline_threads();
    pipeline_threads(const pipeline_threads&) = delete;
    pipeline_threads& operator=(const pipeline_threads&) = delete;

    /// Whether the writer and one worker run, or no threads are wanted.
    bool ready() const { return state_.thread_count == 0 || (!workers_.empty() && writer_); }

  private:
    pipeline_state& state_;
    std::vector<std::unique_ptr<system_thread>> workers_; // those that started
    std::unique_ptr<system_thread> writer_;               // null if it did not
};

} // namespace quarnex
