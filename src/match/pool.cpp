#include "match/pool.h"

#include "common/platform/memory.h"

#include <algorithm>
#include <cstring>

namespace quarnex {

pool::pool(const allocator& source, u64 limit)
{
    u64 chunks = std::min(limit, most_bytes) / chunk_size;
    for (; chunks != 0; chunks = chunks * 3 / 4) {
        if (chunks > SIZE_MAX / 2 / chunk_size) continue;
        size_ = static_cast<usize>(chunks) * chunk_size;
        chunks_ = make_array<chunk>(source, size_ / chunk_size);
        if (!chunks_) continue;
        range_ = make_array<u8>(source, size_ + page_size, memory_kind::reserved);
        if (range_) break;
    }
    base_ = range_.get();
    if (base_ == nullptr) size_ = 0;
    if (size_ >= least_for_large_pages) prefer_large_pages(base_, size_);
}

pool_ref pool::alloc(u32 size)
{
    if (size > large_limit) return no_block;
    const u32 size_class = class_of(size);
    page* const from = bins_[size_class];
    if (from == nullptr) return alloc_in_new_page(size_class);
    const pool_ref block = from->free_head;
    ++from->used;
    from->free_head = link_of(block);
    if (from->free_head != no_block) return block;
    if (from->bump > from->bump_end) {
        leave(*from);
        return block;
    }
    // The list of free blocks has one at a time of those that were never used.
    u8* const fresh = reinterpret_cast<u8*>(from) + from->bump;
    from->bump = static_cast<u16>(from->bump + block_size(size_class));
    from->free_head = ref_of(fresh);
    set_link(from->free_head, no_block);
    return block;
}

pool_ref pool::alloc_in_new_page(u32 size_class)
{
    if (current_ == nullptr && !add_chunk()) return no_block;
    page* const fresh = take_page();
    if (fresh->size_class != size_class) format(*fresh, size_class);
    fresh->used = 0;
    enter(*fresh);
    return alloc(block_size(size_class));
}

bool pool::add_chunk()
{
    chunk* fresh = spare_;
    if (fresh != nullptr) {
        spare_ = fresh->next;
    } else if (chunks_used_ < size_ / chunk_size) {
        fresh = chunks_.get() + chunks_used_;
        // Behind the last chunk a page can be read.
        if (!commit_memory(base_of(fresh), chunk_size + page_size)) return false;
        ++chunks_used_;
    } else {
        return false;
    }
    *fresh = {base_of(fresh), pages_per_chunk, nullptr, nullptr, nullptr};
    current_ = fresh;
    ++chunk_count_;
    return true;
}

pool::page* pool::take_page()
{
    chunk& from = *current_;
    page* taken = from.page_list;
    if (taken != nullptr) {
        from.page_list = taken->next;
    } else {
        taken = reinterpret_cast<page*>(from.next_page);
        from.next_page += page_size;
        taken->size_class = unused_page;
    }
    if (--from.free_pages == 0) {
        current_ = from.next;
        if (current_ != nullptr) current_->prev = nullptr;
    }
    return taken;
}

void pool::format(page& fresh, u32 size_class)
{
    const u32 size = block_size(size_class);
    u8* const first = reinterpret_cast<u8*>(&fresh) + page_header_size;
    fresh.size_class = static_cast<u16>(size_class);
    fresh.bump = static_cast<u16>(page_header_size + size);
    fresh.bump_end = static_cast<u16>(page_size - size);
    fresh.free_head = ref_of(first);
    set_link(fresh.free_head, no_block);
}

/// Puts a page that has room at the front of its bin.
void pool::enter(page& full)
{
    page*& first = bins_[full.size_class];
    full.prev = nullptr;
    full.next = first;
    if (first != nullptr) first->prev = &full;
    first = &full;
}

/// Takes a page out of its bin.
void pool::leave(page& of)
{
    (of.prev != nullptr ? of.prev->next : bins_[of.size_class]) = of.next;
    if (of.next != nullptr) of.next->prev = of.prev;
}

void pool::free(pool_ref block)
{
    if (block == no_block) return;
    page& of = *page_of(block);
    const bool was_full = of.free_head == no_block;
    set_link(block, of.free_head);
    of.free_head = block;
    --of.used;
    if (was_full) {
        enter(of);
    } else if (of.used == 0) {
        leave(of);
        free_page(of);
    }
}

void pool::free_page(page& of)
{
    chunk& owner = *chunk_of(&of);
    of.next = owner.page_list;
    owner.page_list = &of;
    ++owner.free_pages;
    if (owner.free_pages == pages_per_chunk) {
        free_chunk(owner);
    } else if (owner.free_pages == 1) {
        owner.prev = nullptr;
        owner.next = current_;
        if (current_ != nullptr) current_->prev = &owner;
        current_ = &owner;
    } else {
        sort_in(owner);
    }
}

void pool::free_chunk(chunk& of)
{
    (of.prev != nullptr ? of.prev->next : current_) = of.next;
    if (of.next != nullptr) of.next->prev = of.prev;
    discard_memory(base_of(&of), chunk_size);
    of.next = spare_;
    spare_ = &of;
    --chunk_count_;
}

/// Moves a chunk that has got one more free page behind those with fewer: chunks that are nearly
/// empty give no pages as long as there are others, and can become free.
void pool::sort_in(chunk& of)
{
    chunk* after = &of;
    while (after->next != nullptr && after->next->free_pages < of.free_pages) after = after->next;
    if (after == &of) return;
    (of.prev != nullptr ? of.prev->next : current_) = of.next;
    of.next->prev = of.prev;
    of.prev = after;
    of.next = after->next;
    if (of.next != nullptr) of.next->prev = &of;
    after->next = &of;
}

pool_ref pool::realloc(pool_ref block, u32 size)
{
    if (block == no_block) return alloc(size);
    const u32 size_class = page_of(block)->size_class;
    const u32 old_size = block_size(size_class);
    const bool fits = size <= old_size;
    if (fits && (size_class == large_class || 4 * size > 3 * old_size)) return block;
    const pool_ref moved = alloc(size);
    if (moved == no_block) return no_block;
    std::memcpy(at(moved), at(block), std::min(size, old_size));
    free(block);
    return moved;
}

} // namespace quarnex
