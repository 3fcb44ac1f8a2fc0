#include "match/pool.h"

#include "common/platform/memory.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace quarnex {

pool::pool(const allocator& source, u64 limit)
{
    u64 chunks = std::min(limit, max_bytes) / chunk_size;
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
    if (size_ >= min_large_page_range) prefer_large_pages(base_, size_);
}

pool_ref pool::alloc(u32 size)
{
    if (size > large_limit) return no_block;
    const u32 size_class = class_of(size);
    page* const source = bins_[size_class];
    if (source == nullptr) return alloc_in_new_page(size_class);
    const pool_ref block = source->free_head;
    ++source->used;
    source->free_head = next_free(block);
    if (source->free_head != no_block) return block;
    if (source->bump > source->bump_end) {
        remove_from_bin(*source);
        return block;
    }
    // Blocks that were never in use join the free list one at a time.
    u8* const fresh = reinterpret_cast<u8*>(source) + source->bump;
    source->bump = static_cast<u16>(source->bump + block_size(size_class));
    source->free_head = ref_of(fresh);
    set_next_free(source->free_head, no_block);
    return block;
}

pool_ref pool::alloc_in_new_page(u32 size_class)
{
    if (current_ == nullptr && !add_chunk()) return no_block;
    page* const fresh = take_page();
    if (fresh->size_class != size_class) format(*fresh, size_class);
    fresh->used = 0;
    add_to_bin(*fresh);
    return alloc(block_size(size_class));
}

bool pool::add_chunk()
{
    chunk* fresh = spare_;
    if (fresh != nullptr) {
        spare_ = fresh->next;
    } else if (chunks_used_ < size_ / chunk_size) {
        fresh = chunks_.get() + chunks_used_;
        // With a page after it: at() promises one after every block.
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
    chunk& source = *current_;
    page* taken = source.page_list;
    if (taken != nullptr) {
        source.page_list = taken->next;
    } else {
        taken = reinterpret_cast<page*>(source.next_page);
        source.next_page += page_size;
        taken->size_class = no_class;
    }
    if (--source.free_pages == 0) {
        current_ = source.next;
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
    set_next_free(fresh.free_head, no_block);
}

/// Adds a page with room at the front of its bin.
void pool::add_to_bin(page& added)
{
    page*& first = bins_[added.size_class];
    added.prev = nullptr;
    added.next = first;
    if (first != nullptr) first->prev = &added;
    first = &added;
}

void pool::remove_from_bin(page& removed)
{
    (removed.prev != nullptr ? removed.prev->next : bins_[removed.size_class]) = removed.next;
    if (removed.next != nullptr) removed.next->prev = removed.prev;
}

void pool::free(pool_ref block)
{
    if (block == no_block) return;
    assert(block % 2 == 0 && (u64{block} << ref_shift) < u64{chunks_used_} * chunk_size);
    page& owner = *page_of(block);
    assert(owner.used != 0 && owner.size_class < classes);
    const bool was_full = owner.free_head == no_block;
    set_next_free(block, owner.free_head);
    owner.free_head = block;
    --owner.used;
    if (was_full) {
        add_to_bin(owner);
    } else if (owner.used == 0) {
        remove_from_bin(owner);
        free_page(owner);
    }
}

void pool::free_page(page& freed)
{
    chunk& owner = *chunk_of(&freed);
    freed.next = owner.page_list;
    owner.page_list = &freed;
    ++owner.free_pages;
    if (owner.free_pages == pages_per_chunk) {
        free_chunk(owner);
    } else if (owner.free_pages == 1) {
        owner.prev = nullptr;
        owner.next = current_;
        if (current_ != nullptr) current_->prev = &owner;
        current_ = &owner;
    } else {
        reposition(owner);
    }
}

/// Removes a chunk from the list of those with free pages.
void pool::remove_chunk(chunk& removed)
{
    (removed.prev != nullptr ? removed.prev->next : current_) = removed.next;
    if (removed.next != nullptr) removed.next->prev = removed.prev;
}

void pool::free_chunk(chunk& freed)
{
    remove_chunk(freed);
    discard_memory(base_of(&freed), chunk_size);
    freed.next = spare_;
    spare_ = &freed;
    --chunk_count_;
}

/// Moves a chunk that has gained a free page after those with fewer.  Pages are taken from the
/// fullest chunk, so that nearly empty ones can become free.
void pool::reposition(chunk& moved)
{
    chunk* last = &moved;
    while (last->next != nullptr && last->next->free_pages < moved.free_pages) last = last->next;
    if (last == &moved) return;
    remove_chunk(moved);
    moved.prev = last;
    moved.next = last->next;
    if (moved.next != nullptr) moved.next->prev = &moved;
    last->next = &moved;
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
