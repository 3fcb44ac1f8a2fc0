// support/limited_allocator.h - an allocator that records its calls and fails on request
#pragma once

#include "common/allocator.h"
#include "common/sync.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <vector>

namespace quarnex::test {

/// Wraps system_allocator, records each call and fails selected allocations.  Ends the process if
/// memory is released with another size or kind than it was allocated with.  Thread-safe.
class limited_allocator {
  public:
    struct recorded_call {
        void* memory;
        usize size;
        memory_kind kind;
        bool operator==(const recorded_call&) const = default;
    };

    limited_allocator() = default;
    limited_allocator(const limited_allocator&) = delete;
    limited_allocator& operator=(const limited_allocator&) = delete;

    /// Fails allocations of `size` bytes or more.
    void refuse_from(usize size) { max_size_ = size; }
    /// Fails allocations with which more than `total` bytes would be in use.
    void refuse_above(usize total) { max_total_ = total; }
    /// Fails only call number `call`, counted from 1.
    void refuse_call(u64 call) { refused_call_ = call; }

    const allocator& get() const { return allocator_; }

    /// Returns all calls of allocate(), also those that failed.
    std::vector<recorded_call> allocated() const
    {
        scoped_lock lock(mutex_);
        return allocated_;
    }
    /// Returns all calls of release().
    std::vector<recorded_call> released() const
    {
        scoped_lock lock(mutex_);
        return released_;
    }
    /// Returns the number of allocation calls so far.
    u64 calls() const { return allocated().size(); }
    /// Returns the number of live allocations.
    usize in_use() const
    {
        scoped_lock lock(mutex_);
        return live_.size();
    }
    usize bytes_in_use() const
    {
        scoped_lock lock(mutex_);
        usize total = 0;
        for (const auto& [memory, made] : live_) total += made.size;
        return total;
    }

  private:
    static void* allocate(void* context, usize size, memory_kind kind)
    {
        auto& self = *static_cast<limited_allocator*>(context);
        scoped_lock lock(self.mutex_);
        usize total = size;
        for (const auto& [memory, made] : self.live_) total += made.size;
        const bool refused = self.allocated_.size() + 1 == self.refused_call_ ||
                             size >= self.max_size_ || total > self.max_total_;
        void* const memory =
            refused ? nullptr : system_allocator.allocate(system_allocator.context, size, kind);
        self.allocated_.push_back({memory, size, kind});
        if (memory != nullptr) self.live_[memory] = self.allocated_.back();
        return memory;
    }

    static void release(void* context, void* memory, usize size, memory_kind kind)
    {
        auto& self = *static_cast<limited_allocator*>(context);
        scoped_lock lock(self.mutex_);
        const recorded_call released{memory, size, kind};
        const auto made = self.live_.find(memory);
        if (made == self.live_.end() || made->second != released) std::abort();
        self.live_.erase(made);
        self.released_.push_back(released);
        system_allocator.release(system_allocator.context, memory, size, kind);
    }

    const allocator allocator_{allocate, release, this};
    std::atomic<u64> refused_call_{0};
    std::atomic<usize> max_size_{SIZE_MAX};
    std::atomic<usize> max_total_{SIZE_MAX};
    mutable guard_mutex mutex_;
    std::vector<recorded_call> allocated_ GUARDED_BY(mutex_);
    std::vector<recorded_call> released_ GUARDED_BY(mutex_);
    std::map<void*, recorded_call> live_ GUARDED_BY(mutex_);
};

} // namespace quarnex::test
