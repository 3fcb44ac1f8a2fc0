// schedules/scenarios.h - the random scenarios
#pragma once

#include "schedules/samples.h"

#include "common/allocator.h"

#include <atomic>

namespace quarnex::test {

/// Counts what was done, to verify that nothing is left out.
struct scenario_counts {
    u64 engine_runs = 0;
    u64 engine_failures = 0; // runs in which the injected failure occurred
    u64 library_runs = 0;
    std::atomic<u64> sessions{0}; // of handles
    std::atomic<u64> session_failures{0};
};

/// Counts what is in use, and fails one allocation.  Its counters don't order the threads.
class scenario_memory {
  public:
    /// Fails allocation number `refused`, from 1; 0: none.
    explicit scenario_memory(u32 refused) : left_(refused) {}
    scenario_memory(const scenario_memory&) = delete;
    scenario_memory& operator=(const scenario_memory&) = delete;

    const allocator& get() const { return allocator_; }
    bool has_refused() const { return has_refused_.load(std::memory_order_relaxed); }
    i64 in_use() const { return in_use_.load(std::memory_order_relaxed); }

    void* allocate(usize size, memory_kind kind);
    void release(void* memory, usize size, memory_kind kind);

  private:
    std::atomic<u32> left_;
    std::atomic<bool> has_refused_{false};
    std::atomic<i64> in_use_{0};
    const allocator allocator_{[](void* self, usize size, memory_kind kind) {
                                   return static_cast<scenario_memory*>(self)->allocate(size, kind);
                               },
                               [](void* self, void* memory, usize size, memory_kind kind) {
                                   static_cast<scenario_memory*>(self)->release(memory, size, kind);
                               },
                               this};
};

/// Compresses and restores several files with the drivers of quarnex, in `directory`, and fails the
/// process if an outcome is wrong.
void run_engine_scenario(u64 seed, sample_set& samples, const std::string& directory,
                         scenario_counts& counts);

/// Uses readers, writers, codecs and whole buffers of the library, in one thread or several.
void run_library_scenario(u64 seed, sample_set& samples, const std::string& directory,
                          scenario_counts& counts);

} // namespace quarnex::test
