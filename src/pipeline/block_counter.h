// pipeline/block_counter.h - counts the blocks, or the small files, in flight
#pragma once

#include "common/sync.h"
#include "common/types.h"

namespace quarnex {

/// Counts blocks (or small files) that were submitted to the workers and are not yet written or
/// dropped.
class block_counter {
  public:
    void enter()
    {
        scoped_lock lock(mutex_);
        ++count_;
    }

    void leave()
    {
        scoped_lock lock(mutex_);
        if (--count_ < wanted_) enough_left_.notify_one();
    }

    /// Waits until fewer than `limit` blocks are in flight.  Only the thread that calls enter() may
    /// wait.
    void wait_for_fewer_than(u32 limit)
    {
        scoped_lock lock(mutex_);
        wanted_ = limit;
        while (count_ >= limit) enough_left_.wait(mutex_);
        wanted_ = 0;
    }

    /// Waits until no block is in flight.
    void wait_for_none() { wait_for_fewer_than(1); }

  private:
    guard_mutex mutex_;
    guard_condition enough_left_;
    u32 count_ GUARDED_BY(mutex_) = 0;
    u32 wanted_ GUARDED_BY(mutex_) = 0; // limit of the waiting thread; 0 if none waits
};

} // namespace quarnex
