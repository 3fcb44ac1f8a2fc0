#include "pipeline/buffer_pool.h"

#include <algorithm>
#include <utility>

namespace quarnex {
namespace {

memory_kind kind_of(usize size)
{
    return size < large_page_size ? memory_kind::plain : memory_kind::large_pages;
}

} // namespace

void return_buffer::operator()(u8* buffer) const
{
    pool->put_back(buffer, capacity);
}

buffer_pool::buffer_pool(const allocator& source, usize idle_limit, usize total_limit)
    : source_(source), idle_limit_(std::min(idle_limit, max_idle)), total_limit_(total_limit)
{
}

owned_array<u8> buffer_pool::own(u8* buffer, usize capacity) const
{
    return {buffer, return_memory{&source_, capacity, kind_of(capacity)}};
}

owned_array<u8> buffer_pool::allocate(usize size) const
{
    return make_array<u8>(source_, size, kind_of(size));
}

block_buffer buffer_pool::take(usize size)
{
    size = std::max<usize>(size, 1); // as make_array() allocates
    if (block_buffer idle = take_idle(size)) return idle;
    owned_array<u8> fresh = allocate(size);
    if (!fresh) {
        free_idle();
        fresh = allocate(size);
    }
    if (!fresh) {
        scoped_lock lock(mutex_);
        --used_count_;
    }
    return block_buffer(fresh.release(), return_buffer{this, size});
}

block_buffer buffer_pool::take_idle(usize size)
{
    owned_array<u8> evicted; // freed outside the lock
    scoped_lock lock(mutex_);
    ++used_count_;
    const bool is_pooled = size >= min_pooled_bytes;
    // From the buffer released last, which is the most likely to be in the cache.
    for (usize i = is_pooled ? idle_count_ : 0; i-- != 0;) {
        const usize capacity = idle_[i].get_deleter().size;
        // Reject buffers more than twice as large as needed: they would waste memory.
        if (capacity >= size && capacity / 2 <= size)
            return block_buffer(remove_idle(i).release(), return_buffer{this, capacity});
    }
    // The pool is full and nothing fits: evict the oldest to make room for the new size.
    const bool is_full =
        (is_pooled && idle_count_ == idle_limit_) || idle_count_ + used_count_ > total_limit_;
    if (is_full && idle_count_ != 0) evicted = remove_idle(0);
    return {};
}

owned_array<u8> buffer_pool::remove_idle(usize index)
{
    owned_array<u8> removed = std::move(idle_[index]);
    const auto begin = idle_.begin() + static_cast<std::ptrdiff_t>(index);
    const auto end = idle_.begin() + static_cast<std::ptrdiff_t>(idle_count_--);
    std::move(begin + 1, end, begin);
    return removed;
}

void buffer_pool::free_idle()
{
    scoped_lock lock(mutex_);
    while (idle_count_ != 0) idle_[--idle_count_].reset();
}

void buffer_pool::put_back(u8* buffer, usize capacity)
{
    owned_array<u8> returned = own(buffer, capacity); // freed outside the lock
    scoped_lock lock(mutex_);
    const bool has_room = idle_count_ < idle_limit_ && idle_count_ + used_count_ <= total_limit_;
    --used_count_;
    if (capacity >= min_pooled_bytes && has_room) idle_[idle_count_++] = std::move(returned);
}

usize buffer_pool::idle() const
{
    scoped_lock lock(mutex_);
    return idle_count_;
}

} // namespace quarnex
