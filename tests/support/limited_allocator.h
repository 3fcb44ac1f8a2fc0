// support/limited_allocator.h - an allocator that counts calls and fails on request
#pragma once

#include "common/allocator.h"

#include <atomic>

namespace quarnex::test {

/// Wraps system_allocator and fails selected allocations.  Thread-safe.
class limited_allocator {
  public:
    limited_allocator() = default;
    limited_allocator(const limited_allocator&) = delete;
    limited_allocator& operator=(const limited_allocator&) = delete;

    /// Fails allocations of `size` bytes or more.
    void refuse_from(usize size) { max_size_ = size; }
    /// Fails only call number `call`, counted from 1.
    void refuse_call(u64 call) { refused_call_ = call; }

    const allocator& get() const { return allocator_; }
    /// Returns the number of allocation calls so far.
    u64 calls() const { return calls_; }
    /// Returns the number of live allocations.
    i64 in_use() const { return in_use_; }
    i64 bytes_in_use() const { return bytes_; }

  private:
    static void* allocate(void* context, usize size, memory_kind kind)
    {
        auto& self = *static_cast<limited_allocator*>(context);
        if (++self.calls_ == self.refused_call_ || size >= self.max_size_) return nullptr;
        void* const memory = system_allocator.allocate(system_allocator.context, size, kind);
        if (memory == nullptr) return nullptr;
        ++self.in_use_;
        self.bytes_ += static_cast<i64>(size);
        return memory;
    }

    static void release(void* context, void* memory, usize size, memory_kind kind)
    {
        auto& self = *static_cast<limited_allocator*>(context);
        --self.in_use_;
        self.bytes_ -= static_cast<i64>(size);
        system_allocator.release(system_allocator.context, memory, size, kind);
    }

    const allocator allocator_{allocate, release, this};
    std::atomic<u64> calls_{0};
    std::atomic<u64> refused_call_{0};
    std::atomic<usize> max_size_{SIZE_MAX};
    std::atomic<i64> in_use_{0};
    std::atomic<i64> bytes_{0};
};

} // namespace quarnex::test
