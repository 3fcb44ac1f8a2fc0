// pipeline/job_queue.h - bounded FIFO queue between threads
#pragma once

#include "common/sync.h"
#include "common/types.h"

#include <array>
#include <utility>

namespace quarnex {

/// Ring buffer for several producers and consumers.  Records are moved in and out in FIFO order.
///
/// There is no close operation: consumers end at a sentinel record, one for each consumer.
template <class Record>
class job_queue {
  public:
    static constexpr u32 max_capacity = 32;

    /// `capacity` is 1 to max_capacity.
    explicit job_queue(u32 capacity) : capacity_(capacity) {}

    /// Appends a record.  Waits while the ring is full.
    void enqueue(Record record)
    {
        scoped_lock lock(mutex_);
        while (full_) not_full_.wait(mutex_);
        slots_[tail_] = std::move(record);
        tail_ = next(tail_);
        full_ = tail_ == head_;
        empty_ = false;
        not_empty_.notify_one();
    }

    /// Removes and returns the oldest record.  Waits while the ring is empty.
    Record dequeue()
    {
        scoped_lock lock(mutex_);
        while (empty_) not_empty_.wait(mutex_);
        Record record = std::move(slots_[head_]);
        head_ = next(head_);
        empty_ = head_ == tail_;
        full_ = false;
        not_full_.notify_one();
        return record;
    }

  private:
    u32 next(u32 slot) const { return slot + 1 == capacity_ ? 0 : slot + 1; }

    const u32 capacity_;
    guard_mutex mutex_;
    guard_condition not_full_;
    guard_condition not_empty_;
    u32 head_ GUARDED_BY(mutex_) = 0; // next slot to read
    u32 tail_ GUARDED_BY(mutex_) = 0; // next slot to fill
    bool full_ GUARDED_BY(mutex_) = false;
    bool empty_ GUARDED_BY(mutex_) = true;
    std::array<Record, max_capacity> slots_ GUARDED_BY(mutex_){};
};

} // namespace quarnex
