// match/pool.h - many small blocks of memory, found by 32-bit references on every machine
//
// A pool reserves a range of addresses and takes it into use in chunks of 1 MiB.  A chunk is cut
// into pages, a page into blocks of one size.  Blocks have no headers: what there is to know of one
// stands at the start of its page.  A pool belongs to one thread.
#pragma once

#include "common/bytes.h"
#include "common/owned_array.h"

#include <array>

namespace quarnex {

/// A block of a pool, by its distance from the pool's start in units of four bytes.  The lowest bit
/// of a reference is clear.
using pool_ref = u32;
inline constexpr pool_ref no_block = 0;

class pool {
  public:
    static constexpr u32 chunk_size = 1 << 20;
    static constexpr u32 page_size = 4096;
    /// What references can tell apart.
    static constexpr u64 most_bytes = u64{1} << 34;

    /// Sizes from 1 to small_limit are rounded up to multiples of size_step, each with pages of its
    /// own; those up to large_limit have pages in common, which hold three blocks.
    static constexpr u32 size_step = 8;
    static constexpr u32 small_limit = 512;
    static constexpr u32 large_limit = 1352;

    /// A pool that grows to at most `limit` bytes from `source`, or less if the system has no such
    /// range; to nothing in the worst case.
    pool(const allocator& source, u64 limit);
    pool(const pool&) = delete;
    pool& operator=(const pool&) = delete;

    /// The memory of a block, behind which a page can be read.
    u8* at(pool_ref block) const { return base_ + (usize{block} << ref_shift); }

    /// A block of at least `size` bytes (0 counts as 1); none if there is no memory, or if the size
    /// is above large_limit.
    [[nodiscard]] pool_ref alloc(u32 size);

    /// Takes a block back; none is ignored.
    void free(pool_ref block);

    /// Makes a block hold `size` bytes and returns it, or the one to which its content has moved.
    /// A small block keeps its place while more than three quarters of it are used, a large one
    /// always.  If there is no memory, or the size is above large_limit, the result is none and the
    /// block stays as it is.  With no block it is alloc().
    [[nodiscard]] pool_ref realloc(pool_ref block, u32 size);

    /// Whether there is readable memory at a reference that may be stale or never was one, and
    /// behind it for any block.
    bool is_readable(pool_ref block) const
    {
        return (u64{block} << ref_shift) + large_limit <= u64{chunks_used_} * chunk_size;
    }

    /// Has what realloc() and free() need to know of a block on its way.
    void fetch_page(pool_ref block) const { __builtin_prefetch(page_of(block)); }

    /// Chunks in use.
    u32 chunk_count() const { return chunk_count_; }

  private:
    static constexpr u32 ref_shift = 2;
    static constexpr usize least_for_large_pages = usize{8} << 20;
    static constexpr u32 pages_per_chunk = chunk_size / page_size;
    static constexpr u32 large_class = small_limit / size_step;
    static constexpr u32 classes = large_class + 1;

    /// The start of each page.
    struct page {
        u32 used;           // blocks handed out
        pool_ref free_head; // the first free block, which starts with a reference to the next
        page* next;         // in the bin, or in the chunk's list of free pages
        page* prev;         // in the bin
        u16 size_class;
        u16 bump;     // where the next block is cut that never was one
        u16 bump_end; // the last place where one fits
    };
    static constexpr u32 page_header_size = 32;
    static constexpr u16 unused_page = 0xFFFF; // the size class of a page without blocks so far
    static_assert(sizeof(page) <= page_header_size);

    struct chunk {
        u8* next_page; // the next one that never was used
        u32 free_pages;
        page* page_list; // those that were handed back
        chunk* next;     // in the list of chunks with free pages, or of those not in use
        chunk* prev;     // in the former
    };

    static constexpr u32 class_of(u32 size)
    {
        if (size == 0) return 0;
        return size <= small_limit ? (size - 1) / size_step : large_class;
    }
    static constexpr u32 block_size(u32 size_class)
    {
        return size_class < large_class ? (size_class + 1) * size_step : large_limit;
    }
    static_assert((page_size - page_header_size) / large_limit == 3 && large_limit % 8 == 0);

    pool_ref ref_of(const u8* place) const
    {
        return static_cast<pool_ref>(static_cast<usize>(place - base_) >> ref_shift);
    }
    page* page_of(pool_ref block) const
    {
        constexpr u32 units = page_size >> ref_shift;
        return reinterpret_cast<page*>(at(block / units * units));
    }
    chunk* chunk_of(const page* of) const
    {
        const auto place = static_cast<usize>(reinterpret_cast<const u8*>(of) - base_);
        return chunks_.get() + place / chunk_size;
    }
    u8* base_of(const chunk* of) const
    {
        return base_ + static_cast<usize>(of - chunks_.get()) * chunk_size;
    }
    pool_ref link_of(pool_ref block) const { return load_u32(at(block)); }
    void set_link(pool_ref block, pool_ref next) const { store_u32(at(block), next); }

    pool_ref alloc_in_new_page(u32 size_class);
    bool add_chunk();
    page* take_page();
    void format(page& fresh, u32 size_class);
    void enter(page& full);
    void leave(page& of);
    void free_page(page& of);
    void free_chunk(chunk& of);
    void sort_in(chunk& of);

    owned_array<u8> range_; // of addresses
    u8* base_ = nullptr;    // of range_
    usize size_ = 0;
    owned_array<chunk> chunks_;
    u32 chunks_used_ = 0; // records that have been in use
    u32 chunk_count_ = 0;
    chunk* spare_ = nullptr;            // records of chunks that were freed
    chunk* current_ = nullptr;          // chunks with free pages, the fullest first
    std::array<page*, classes> bins_{}; // pages that have room, by size class
};

} // namespace quarnex
