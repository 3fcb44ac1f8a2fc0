// pipeline/displacement_window.h - keeps a file's records close to the order of its blocks
#pragma once

#include "common/sync.h"
#include "common/types.h"

#include <bitset>

namespace quarnex {

/// The head of a record can place its block at most 127 positions away.  So the driver waits here
/// before it submits a block that would run too far ahead of the oldest unwritten one.  (Blocks
/// that are dropped after a failure shift later records; such a file is incomplete anyway.)
class displacement_window {
  public:
    /// How far a block may run ahead of the oldest unwritten one.
    static constexpr u32 reach = 120;

    /// Waits until block `index` may enter.  The driver calls it for each block, in order.
    void wait_to_enter(u32 index);

    /// Notes that block `index` has been written or dropped.  Called once for each block.
    void mark_done(u32 index);

  private:
    guard_mutex mutex_;
    guard_condition moved_;
    u32 oldest_ GUARDED_BY(mutex_) = 0;              // all blocks before it are done
    std::bitset<reach + 1> done_ GUARDED_BY(mutex_); // block i is bit i modulo the size
};

} // namespace quarnex
