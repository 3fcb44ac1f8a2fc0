// match/table_memory.h - zeroed memory for large tables, handed from block to block
//
// To get 128 MiB of zeros from the system takes ten times as long as to clear them, and threads
// that ask for them at the same time wait for each other.  So a thread keeps the memory for the
// next table of the same size.  It is cleared then; or at once by a short block, which has touched
// so little that it knows better than anyone what to clear.
#pragma once

#include "common/owned_array.h"

#include <algorithm>
#include <utility>

namespace quarnex {

class table_memory {
  public:
    /// `count` zeros for a block of `positions` bytes.  Without memory it converts to false.
    table_memory(usize count, usize positions) : count_(count)
    {
        const bool large_pages = large_pages_pay(count * sizeof(u32), positions);
        if (kept().count == count && (kept().large_pages || !large_pages)) {
            entries_ = std::move(kept().entries);
            large_pages_ = kept().large_pages;
            if (!kept().zero) std::fill_n(entries_.get(), count, 0);
        } else {
            kept().entries.reset(); // not both at the same time
            entries_ = make_zeroed_table<u32>(count, positions);
            large_pages_ = large_pages;
        }
        kept().count = 0;
    }

    /// Leaves the memory to the thread.
    ~table_memory()
    {
        if (entries_) kept() = {std::move(entries_), count_, large_pages_, zero_};
    }
    table_memory(const table_memory&) = delete;
    table_memory& operator=(const table_memory&) = delete;

    explicit operator bool() const { return entries_ != nullptr; }

    u32* get() const { return entries_.get(); }

    /// Whether a block of `positions` bytes clears what it has touched faster than all is cleared.
    bool is_mostly_zero(usize positions) const { return positions < count_ / entries_per_position; }

    /// Tells that all is zero again.
    void was_cleared() { zero_ = true; }

  private:
    struct kept_memory {
        owned_array<u32> entries;
        usize count = 0; // of the entries; 0 if there are none
        bool large_pages = false;
        bool zero = false;
    };
    /// What the thread has kept.
    static kept_memory& kept()
    {
        thread_local kept_memory memory;
        return memory;
    }

    /// So many entries are cleared in about the time that it takes to find and clear a bucket.
    static constexpr usize entries_per_position = 160;

    owned_array<u32> entries_;
    usize count_;
    bool large_pages_ = false; // as far as the system has them
    bool zero_ = false;
};

} // namespace quarnex
