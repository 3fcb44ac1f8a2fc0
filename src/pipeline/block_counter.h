// pipeline/block_counter.h - how many blocks are in flight
#pragma once

#include "common/sync.h"
#include "common/types.h"

namespace quarnex {

/// Counts the blocks that have been submitted to the workers and are neither written nor dropped.
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
        if (--count_ == 0) none_left_.notify_one();
    }

    /// Waits until no block is in flight.  One thread at a time may wait, the one that enters
    /// blocks.
    void wait_for_none()
    {
        scoped_lock lock(mutex_);
        while (count_ != 0) none_left_.wait(mutex_);
    }

  private:
    guard_mutex mutex_;
    guard_condition none_left_;
    u32 count_ GUARDED_BY(mutex_) = 0;
};

} // namespace quarnex
