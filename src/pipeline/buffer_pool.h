// pipeline/buffer_pool.h - recycles block buffers
//
// A block's buffers have tens of MiB each.  Fresh memory costs one page fault per page, which takes
// as long as a fast codec takes for the data.  The pool keeps released buffers for later blocks.
#pragma once

#include "common/owned_array.h"
#include "common/sync.h"
#include "common/types.h"

#include <array>
#include <memory>

namespace quarnex {

class buffer_pool;

/// Deleter that returns a buffer to its pool.
struct return_buffer {
    buffer_pool* pool = nullptr;
    usize capacity = 0;
    void operator()(u8* buffer) const;
};

/// An owned block buffer.
using block_buffer = std::unique_ptr<u8[], return_buffer>;

class buffer_pool {
  public:
    /// Upper bound for the idle buffers of any pool.
    static constexpr usize max_idle = 40;
    /// Smaller buffers are cheap to allocate and are not kept.
    static constexpr usize min_pooled_bytes = usize{256} << 10;

    /// Keeps up to `idle_limit` (at most max_idle) idle buffers; fewer if idle buffers and those in
    /// use would together exceed `total_limit`.
    buffer_pool(const allocator& source, usize idle_limit, usize total_limit = SIZE_MAX);

    /// Returns a buffer of at least `size` bytes with undefined content, or null when memory is
    /// exhausted.  The buffer must be released before the pool is destroyed.
    [[nodiscard]] block_buffer take(usize size);

    /// Frees all idle buffers.
    void free_idle();

    /// Returns the number of idle buffers.
    usize idle() const;

  private:
    friend struct return_buffer;
    void put_back(u8* buffer, usize capacity);

    /// Takes ownership of a buffer that was handed out; `capacity` is its allocated size.
    owned_array<u8> own(u8* buffer, usize capacity) const;
    owned_array<u8> allocate(usize size) const;
    /// Returns an idle buffer that suits `size`.  If there is none, makes room for a fresh one and
    /// returns null.  Counts the buffer, idle or fresh, as in use.
    block_buffer take_idle(usize size);
    /// Removes and returns an idle buffer.
    owned_array<u8> remove_idle(usize index) REQUIRES(mutex_);

    const allocator& source_;
    const usize idle_limit_;
    const usize total_limit_;
    mutable guard_mutex mutex_;
    std::array<owned_array<u8>, max_idle> idle_ GUARDED_BY(mutex_); // oldest first
    usize idle_count_ GUARDED_BY(mutex_) = 0;
    usize used_count_ GUARDED_BY(mutex_) = 0; // buffers in use
};

} // namespace quarnex
