#include "pipeline/buffer_pool.h"

#include <algorithm>
#include <utility>

namespace quarnex {
namespace {

/// Smaller buffers are cheap to allocate and are not pooled.
constexpr usize min_pooled_bytes = usize{256} << 10;

memory_kind kind_of(usize size)
{
    return size < large_page_size ? memory_kind::plain : memory_kind::large_pages;
}

} // namespace

void return_buffer::operator()(u8* buffer) const
{
    pool->put_back(buffer, capacity);
}

buffer_pool::buffer_pool(const allocator& source, usize idle_limit)
    : source_(source), idle_limit_(std::min(idle_limit, max_idle))
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
    if (size >= min_pooled_bytes) {
        if (block_buffer idle = take_idle(size)) return idle;
    }
    owned_array<u8> fresh = allocate(size);
    if (!fresh) {
        free_idle();
        fresh = allocate(size);
    }
    return block_buffer(fresh.release(), return_buffer{this, size});
}

block_buffer buffer_pool::take_idle(usize size)
{
    owned_array<u8> evicted; // freed outside the lock
    scoped_lock lock(mutex_);
    const auto begin = idle_.begin();
    const auto end = begin + static_cast<std::ptrdiff_t>(idle_count_);
    const auto found = std::find_if(begin, end, [&](const owned_array<u8>& buffer) {
        // Reject buffers more than twice as large as needed: they would waste memory.
        const usize capacity = buffer.get_deleter().size;
        return capacity >= size && capacity / 2 <= size;
    });
    if (found != end) {
        const usize capacity = found->get_deleter().size;
        block_buffer taken(found->release(), return_buffer{this, capacity});
        std::swap(*found, idle_[--idle_count_]);
        return taken;
    }
    // The pool is full and nothing fits: evict the oldest to make room for the new size.
    if (idle_count_ == idle_limit_ && idle_count_ != 0) {
        evicted = std::move(*begin);
        std::move(begin + 1, end, begin);
        --idle_count_;
    }
    return {};
}

void buffer_pool::free_idle()
{
    scoped_lock lock(mutex_);
    while (idle_count_ != 0) idle_[--idle_count_].reset();
}

void buffer_pool::put_back(u8* buffer, usize capacity)
{
    owned_array<u8> returned = own(buffer, capacity); // freed outside the lock
    if (capacity < min_pooled_bytes) return;
    scoped_lock lock(mutex_);
    if (idle_count_ < idle_limit_) idle_[idle_count_++] = std::move(returned);
}

usize buffer_pool::idle() const
{
    scoped_lock lock(mutex_);
    return idle_count_;
}

} // namespace quarnex
