// pipeline/displacement_window.h - keeps a file's records close to the order of its blocks
#pragma once

#include "common/sync.h"
#include "common/types.h"

#include <bitset>

namespace quarnex {

/// A record's head can say that its block lies up to 127 places away, and no more.  So the driver
/// waits here before it lets a block in that would run too far ahead of the oldest one that is
/// still unwritten.  (Blocks that are given up after a failure make the places of later ones wrong;
/// such a file is lost anyway.)
class displacement_window {
  public:
    /// How many places a block may run ahead of the oldest unwritten one.
    static constexpr u32 reach = 120;

    /// Waits until block `index` may enter.  The driver calls it for each block, in order.
    void wait_to_enter(u32 index);

    /// Says that block `index` has been written or given up.  Called once for each block.
    void settle(u32 index);

  private:
    guard_mutex mutex_;
    guard_condition moved_;
    u32 oldest_ GUARDED_BY(mutex_) = 0;                 // all blocks before it are settled
    std::bitset<reach + 1> settled_ GUARDED_BY(mutex_); // block i is bit i modulo the size
};

} // namespace quarnex
