// pipeline/displacement_window.h - keeps a file's records close to the order of its blocks
#pragma once

#include "common/sync.h"
#include "common/types.h"

#include <bitset>

namespace quarnex {

/// A record head can place its block at most 127 positions away from the record.  The driver waits
/// here before it submits a block that would be too far ahead of the oldest unwritten one.  (Blocks
/// that are dropped after a failure shift later records; such a file is incomplete anyway.)
class displacement_window {
  public:
    /// Maximum distance of a submitted block from the oldest unwritten one.
    static constexpr u32 max_lead = 120;

    /// Waits until block `index` may be submitted.  The driver calls it for each block, in order.
    void wait_to_enter(u32 index);

    /// Records that block `index` was written or dropped.  Called once for each block.
    void mark_done(u32 index);

  private:
    guard_mutex mutex_;
    guard_condition moved_;
    u32 oldest_ GUARDED_BY(mutex_) = 0;                 // all blocks before it are done
    std::bitset<max_lead + 1> done_ GUARDED_BY(mutex_); // bit (i mod size) is block i
};

} // namespace quarnex
