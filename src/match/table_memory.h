// match/table_memory.h - memory for large hash tables, reused from block to block
//
// Getting 128 MiB of zeros from the system takes ten times as long as clearing them, and threads
// that do so at the same time wait for each other.  So the memory stays in the scratch for the next
// table of the same size.  Clearing all of it would dominate the time of a small block.  Such a
// block clears only the buckets it touched, when it ends; or its entries rise: it adds to the
// positions that it stores, so that they exceed all entries of earlier blocks, which read as zeros.
#pragma once

#include "common/scratch.h"

#include <algorithm>
#include <utility>

namespace quarnex {

/// What a table does with the entries of earlier blocks.
enum class table_start {
    zeros,  // clears them
    rising, // keeps them: entries up to base() stand for zero
};

class table_memory {
  public:
    /// `count` entries for a block of `positions` bytes.  Converts to false without memory.
    table_memory(scratch& keeper, usize count, usize positions,
                 table_start start = table_start::zeros)
        : keeper_(keeper), count_(count)
    {
        idle_table& kept = keeper.table;
        const bool large_pages = large_pages_pay(count * sizeof(u32), positions);
        if (kept.count == count && (kept.large_pages || !large_pages)) {
            entries_ = std::move(kept.entries);
            large_pages_ = kept.large_pages;
            if (start == table_start::rising && positions < max_entry - kept.highest)
                base_ = kept.highest;
            else if (kept.highest != 0)
                std::fill_n(entries_.get(), count, 0);
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
        if (entries_) keeper_.table = {std::move(entries_), count_, large_pages_, highest_};
    }
    table_memory(const table_memory&) = delete;
    table_memory& operator=(const table_memory&) = delete;

    explicit operator bool() const { return entries_ != nullptr; }

    u32* get() const { return entries_.get(); }

    /// Entries up to this value stand for zero, which is stored as `base()`; others are higher.
    /// 0 with table_start::zeros.
    u32 base() const { return base_; }

    /// True if clearing the buckets that a block of `positions` bytes touched is faster than
    /// clearing the whole table.
    bool is_mostly_zero(usize positions) const { return positions < count_ / entries_per_position; }

    /// Notes that no entry is higher than `value`.  Without a call, entries count as arbitrary, and
    /// the next block clears the table.
    void mark_highest(u32 value) { highest_ = value; }

  private:
    static constexpr u32 max_entry = UINT32_MAX;
    /// Clearing this many contiguous entries takes about as long as locating and clearing one
    /// bucket.
    static constexpr usize entries_per_position = 160;

    scratch& keeper_;
    owned_array<u32> entries_;
    usize count_;
    u32 base_ = 0;
    u32 highest_ = max_entry;
    bool large_pages_ = false; // requested, where the system has them
};

} // namespace quarnex
