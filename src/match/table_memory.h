// match/table_memory.h - zeroed memory for large tables, kept from block to block
//
// To get 128 MiB of zeros from the system takes milliseconds, and a file of a few kilobytes touches
// hardly any of them.  So a short block makes what it has touched zero again, and its thread keeps
// the memory for a next block with a table of that size.  Blocks find all zeros either way.
#pragma once

#include "common/owned_array.h"

#include <utility>

namespace quarnex {

class table_memory {
  public:
    /// `count` zeros for a block of `positions` bytes: those that the thread has kept, or fresh
    /// ones.  Without memory it converts to false.
    table_memory(usize count, usize positions) : count_(count)
    {
        if (kept().count == count) {
            entries_ = std::move(kept().entries);
        } else {
            kept().entries.reset(); // not both at the same time
            entries_ = make_zeroed_table<u32>(count, positions);
        }
        kept().count = 0;
    }

    explicit operator bool() const { return entries_ != nullptr; }

    u32* get() const { return entries_.get(); }

    /// Whether a block of `positions` bytes makes its entries zero faster than the system does.
    bool worth_keeping(usize positions) const { return positions < count_ / entries_per_position; }

    /// Leaves the memory, all zero again, to the thread.
    void keep() { kept() = {std::move(entries_), count_}; }

  private:
    struct kept_memory {
        owned_array<u32> entries;
        usize count = 0; // of the entries; 0 if there are none
    };
    /// What the thread has kept.
    static kept_memory& kept()
    {
        thread_local kept_memory memory;
        return memory;
    }

    /// So many fresh entries cost the system about as much as it costs to clear a bucket.
    static constexpr usize entries_per_position = 512;

    owned_array<u32> entries_;
    usize count_;
};

} // namespace quarnex
