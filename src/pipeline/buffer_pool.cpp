#include "pipeline/buffer_pool.h"

#include <utility>

namespace quarnex {
namespace {

/// Smaller buffers come from the allocator at no cost worth saving.
constexpr usize least_pooled_bytes = usize{256} << 10;

owned_array<u8> allocate(usize size)
{
    return size < large_page_size ? make_array<u8>(size) : make_large_buffer(size);
}

} // namespace

void return_buffer::operator()(u8* buffer) const
{
    pool->put_back(buffer, capacity);
}

buffer_pool::buffer_pool(usize most_idle) : most_idle_(most_idle)
{
    scoped_lock lock(mutex_);
    idle_.reserve(most_idle);
}

block_buffer buffer_pool::take(usize size)
{
    if (size >= least_pooled_bytes) {
        if (block_buffer idle = take_idle(size)) return idle;
    }
    owned_array<u8> fresh = allocate(size);
    if (!fresh) {
        give_up_idle();
        fresh = allocate(size);
    }
    return block_buffer(fresh.release(), return_buffer{this, size});
}

block_buffer buffer_pool::take_idle(usize size)
{
    idle_buffer unfit; // freed outside the lock
    scoped_lock lock(mutex_);
    for (idle_buffer& idle : idle_) {
        // One that is far too large would hold memory that others could use.
        if (idle.capacity < size || idle.capacity / 2 > size) continue;
        block_buffer found(idle.memory.release(), return_buffer{this, idle.capacity});
        std::swap(idle, idle_.back());
        idle_.pop_back();
        return found;
    }
    // Sizes have changed: the oldest makes place for buffers of the new size.
    if (idle_.size() == most_idle_ && most_idle_ != 0) {
        std::swap(unfit, idle_.front());
        idle_.erase(idle_.begin());
    }
    return {};
}

void buffer_pool::give_up_idle()
{
    scoped_lock lock(mutex_);
    idle_.clear();
}

void buffer_pool::put_back(u8* buffer, usize capacity)
{
    idle_buffer returned{owned_array<u8>(buffer), capacity};
    if (capacity < least_pooled_bytes) return;
    scoped_lock lock(mutex_);
    if (idle_.size() < most_idle_) idle_.push_back(std::move(returned));
}

usize buffer_pool::idle() const
{
    scoped_lock lock(mutex_);
    return idle_.size();
}

} // namespace quarnex
