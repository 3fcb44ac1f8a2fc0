// common/recording_allocator.h - an allocator that records its calls
#pragma once

#include "common/allocator.h"

#include <cstdint>
#include <vector>

namespace quarnex::test {

/// Allocates from the system and records each call; fails from call `fail_from` on.
class recording_allocator {
  public:
    struct call {
        void* memory;
        usize size;
        memory_kind kind;
        bool operator==(const call&) const = default;
    };

    recording_allocator() = default;
    recording_allocator(const recording_allocator&) = delete;
    recording_allocator& operator=(const recording_allocator&) = delete;

    const allocator& get() const { return allocator_; }

    usize fail_from = SIZE_MAX; // index of the first call that returns null
    std::vector<call> allocated{};
    std::vector<call> released{};

  private:
    static void* allocate(void* context, usize size, memory_kind kind)
    {
        auto& self = *static_cast<recording_allocator*>(context);
        void* const memory = self.allocated.size() < self.fail_from
                                 ? system_allocator.allocate(system_allocator.context, size, kind)
                                 : nullptr;
        self.allocated.push_back({memory, size, kind});
        return memory;
    }

    static void release(void* context, void* memory, usize size, memory_kind kind)
    {
        auto& self = *static_cast<recording_allocator*>(context);
        self.released.push_back({memory, size, kind});
        system_allocator.release(system_allocator.context, memory, size, kind);
    }

    const allocator allocator_{allocate, release, this};
};

} // namespace quarnex::test
