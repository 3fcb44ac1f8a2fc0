// match/table_memory.h - zeroed memory for large tables, reused from block to block
//
// Getting 128 MiB of zeros from the system takes ten times as long as clearing them, and threads
// that do so at the same time wait for each other.  So the memory stays in the scratch for the next
// table of the same size, which clears it; a short block clears only the buckets it touched, when
// it ends.
#pragma once

#include "common/scratch.h"

#include <algorithm>
#include <utility>

namespace quarnex {

class table_memory {
  public:
    /// `count` zeros for a block of `positions` bytes.  Converts to false without memory.
    table_memory(scratch& keeper, usize count, usize positions) : keeper_(keeper), count_(count)
    {
        idle_table& kept = keeper.table;
        const bool large_pages = large_pages_pay(count * sizeof(u32), positions);
        if (kept.count == count && (kept.large_pages || !large_pages)) {
            entries_ = std::move(kept.entries);
            large_pages_ = kept.large_pages;
            if (!kept.zero) std::fill_n(entries_.get(), count, 0);
        } else {
            kept.entries.reset(); // before the allocation: never hold both
            entries_ = make_zeroed_table<u32>(keeper.source, count, positions);
            large_pages_ = large_pages;
        }
        kept.count = 0;
    }

    /// Leaves the memory in the scratch.
    ~table_memory()
    {
        if (entries_) keeper_.table = {std::move(entries_), count_, large_pages_, zero_};
    }
    table_memory(const table_memory&) = delete;
    table_memory& operator=(const table_memory&) = delete;

    explicit operator bool() const { return entries_ != nullptr; }

    u32* get() const { return entries_.get(); }

    /// True if clearing the buckets that a block of `positions` bytes touched is faster than
    /// clearing the whole table.
    bool is_mostly_zero(usize positions) const { return positions < count_ / entries_per_position; }

    /// Notes that all entries are zero again.
    void mark_cleared() { zero_ = true; }

  private:
    /// Clearing this many contiguous entries takes about as long as locating and clearing one
    /// bucket.
    static constexpr usize entries_per_position = 160;

    scratch& keeper_;
    owned_array<u32> entries_;
    usize count_;
    bool large_pages_ = false; // requested, where the system has them
    bool zero_ = false;
};

} // namespace quarnex
