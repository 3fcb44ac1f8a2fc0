// pipeline/ordered_coder.h - codes blocks in parallel and returns them in order
//
//     submit() --> ring of blocks: [ finished | being coded | waiting ] --> front(), pop()
//
// The caller's thread does all input and output.  Workers take the blocks of the ring in order;
// without workers submit() codes the block itself.
#pragma once

#include "common/object_array.h"
#include "common/platform/thread.h"
#include "pipeline/block_coder.h"
#include "pipeline/notices.h"

#include <algorithm>

namespace quarnex {

/// A block in the ring of an ordered_coder.
struct ordered_block {
    block_job job;
    /// True if coding also computes the CRC-32 of the original: before the filter is applied, or
    /// after it is undone.
    bool is_summed = false;
    /// Record of a raw block, which is written as it is: coding only decodes it for its sum.
    block_buffer raw_record;
    u32 raw_size = 0;
    /// status::done, or why the block is not available.  Set by the caller, who then uses
    /// submit_finished(), or by coding.
    notice fault{.what = status::done};
    bool is_reported = false; // used by the caller only
    u32 length = 0;           // of the block, in bytes; used by the caller only

    // Set by coding.
    write_job finished;
    block_result result;
    u32 sum = 0; // CRC-32 of the original
};

/// Sets the fault of a decoded block that is short or whose payload ends inexactly.
void find_fault(ordered_block& decoded);

/// Returns how many of `threads` threads can have work in a file of `blocks` blocks.
constexpr u32 useful_threads(u32 threads, u64 blocks)
{
    return blocks <= 1 ? 0 : static_cast<u32>(std::min<u64>(threads, blocks));
}

/// Maximum number of buffers for `blocks` blocks: a block that is being coded has an input and an
/// output, others have one of them.
constexpr u32 coder_buffers(u32 threads, u32 blocks)
{
    return blocks + std::max(threads, 1U);
}

class ordered_coder {
  public:
    /// A coder with `threads` threads and a ring of `blocks` blocks, 1 or more.  The caller takes
    /// up to `spare` buffers from `buffers` for blocks that are not in the ring.
    ordered_coder(const allocator& source, u32 threads, u32 blocks, u32 spare);
    ordered_coder(const ordered_coder&) = delete;
    ordered_coder& operator=(const ordered_coder&) = delete;
    /// Drops all blocks and joins the threads.
    ~ordered_coder();

    /// Makes the ring and starts the threads.  Called once.
    [[nodiscard]] status start();

    u32 size() const { return static_cast<u32>(tail_ - head_); }
    bool full() const { return size() == capacity; }

    /// Returns the next free block of the ring, emptied, to be filled in for submit().  Requires
    /// !full().
    ordered_block& next();
    /// Submits the block from next() for coding.
    void submit();
    /// Appends the block from next() without coding it; the caller has set its outcome.
    void submit_finished();

    /// Waits for the oldest block and returns it.  Requires a size() of 1 or more.
    ordered_block& front();
    /// Removes the oldest block, which must be finished.
    void pop();
    /// Removes all blocks, after waiting for those that are being coded; the rest isn't coded.
    void drop_all();

    const u32 thread_count;
    const u32 capacity;
    buffer_pool buffers;

  private:
    struct slot {
        ordered_block block;
        bool is_finished = false; // guarded by mutex_ while the block is in the ring
    };

    slot& slot_of(u64 number) { return ring_[static_cast<usize>(number % capacity)]; }
    void append(bool is_finished);
    void run_worker();
    void end_threads();

    const allocator& source_;
    object_array<slot> ring_;
    object_array<system_thread> threads_;
    scratch memory_; // of the caller's thread, if there are no workers

    // Blocks counted since the start.  Only the caller's thread changes head_ and tail_.
    u64 head_ = 0;
    u64 tail_ = 0;
    guard_mutex mutex_;
    guard_condition work_;                      // a block was submitted, or is_ending_
    guard_condition finished_;                  // a block is finished
    u64 submitted_ GUARDED_BY(mutex_) = 0;      // tail_, as the workers see it
    u64 next_to_code_ GUARDED_BY(mutex_) = 0;   // at most submitted_
    bool is_ending_ GUARDED_BY(mutex_) = false; // threads exit
};

} // namespace quarnex
