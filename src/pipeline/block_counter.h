// pipeline/block_counter.h - counts the blocks in flight
#pragma once

#include "common/sync.h"
#include "common/types.h"

namespace quarnex {

/// Counts the blocks that were submitted to the workers and are not yet written or dropped.
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

    /// Waits until no block is in flight.  Only the thread that calls enter() may wait.
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
