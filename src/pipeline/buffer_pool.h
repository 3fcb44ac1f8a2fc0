// pipeline/buffer_pool.h - block buffers that are used again
//
// A block's buffers are some ten MiB each.  Memory fresh from the system costs a page fault every
// few KiB, which is as much time as a fast codec takes for the data; so a buffer that is no longer
// needed waits here for the next block.
#pragma once

#include "common/owned_array.h"
#include "common/sync.h"
#include "common/types.h"

#include <array>
#include <memory>

namespace quarnex {

class buffer_pool;

/// Gives a buffer back to the pool it came from.
struct return_buffer {
    buffer_pool* pool = nullptr;
    usize capacity = 0;
    void operator()(u8* buffer) const;
};

/// A block buffer and its owner.
using block_buffer = std::unique_ptr<u8[], return_buffer>;

class buffer_pool {
  public:
    /// The most idle buffers of any pool.
    static constexpr usize max_idle = 40;

    /// Keeps up to `idle_limit` (at most max_idle) buffers that nobody uses.
    buffer_pool(const allocator& source, usize idle_limit);

    /// Returns a buffer of `size` bytes or more, of undefined content; null when there is no
    /// memory. It must be given up before the pool is.
    [[nodiscard]] block_buffer take(usize size);

    /// Number of buffers that wait for use.
    usize idle() const;

  private:
    friend struct return_buffer;
    void put_back(u8* buffer, usize capacity);

    /// Ownership of a buffer outside the pool rests in its capacity alone.
    owned_array<u8> own(u8* buffer, usize capacity) const;
    owned_array<u8> allocate(usize size) const;
    /// Returns an idle buffer that suits `size`, or null.
    block_buffer take_idle(usize size);
    /// Frees all idle buffers.
    void free_idle();

    const allocator& source_;
    const usize idle_limit_;
    mutable guard_mutex mutex_;
    std::array<owned_array<u8>, max_idle> idle_ GUARDED_BY(mutex_); // the oldest first
    usize idle_count_ GUARDED_BY(mutex_) = 0;
};

} // namespace quarnex
