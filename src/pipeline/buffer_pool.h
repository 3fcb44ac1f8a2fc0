// pipeline/buffer_pool.h - block buffers that are used again
//
// A block's buffers are some ten MiB each.  Memory fresh from the system costs a page fault every
// few KiB, which is as much time as a fast codec takes for the data; so a buffer that is given up
// waits here for the next block.
#pragma once

#include "common/owned_array.h"
#include "common/sync.h"
#include "common/types.h"

#include <memory>
#include <vector>

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
    /// Keeps at most `most_idle` buffers that nobody uses.
    explicit buffer_pool(usize most_idle);

    /// A buffer of `size` bytes or more, of undefined content; null when there is no memory.  It
    /// must be given up before the pool is.
    [[nodiscard]] block_buffer take(usize size);

    /// Number of buffers that wait for use.
    usize idle() const;

  private:
    friend struct return_buffer;
    void put_back(u8* buffer, usize capacity);

    struct idle_buffer {
        owned_array<u8> memory;
        usize capacity = 0;
    };
    /// An idle buffer that suits `size`, or null.
    block_buffer take_idle(usize size);
    /// Frees all idle buffers.
    void give_up_idle();

    const usize most_idle_;
    mutable guard_mutex mutex_;
    std::vector<idle_buffer> idle_ GUARDED_BY(mutex_);
};

} // namespace quarnex
