// match/pool.h - slab allocator over one reserved address range, with 32-bit handles
//
// Algorithm: slabs of one size class with free lists (Bonwick 1994).  A slab is a page of 4096
// bytes.  Pages come from chunks of 1 MiB, in which the reserved range is committed.  Blocks have
// no headers: the header of their page, found by rounding the address down, describes them all.
//
// Time: O(1) for each operation, except when a page becomes free: then its chunk is moved within
// the list of chunks with free pages.  Memory: a block is rounded up to a multiple of 8 bytes
// (above 512 bytes to 1352); a page loses 32 bytes to its header and less than one block at its
// end.
//
// Why not malloc(): trie nodes of 10 to 1032 bytes would carry headers and be linked by 64-bit
// pointers.  Here a handle has 32 bits on every machine, and the whole pool is released at once.
// Unlike Bonwick's slabs these keep no constructed objects and have no colouring.
//
// A pool belongs to one thread.
#pragma once

#include "common/bytes.h"
#include "common/owned_array.h"

#include <array>

namespace quarnex {

/// Handle of a block: its offset from the pool's start in units of four bytes.  Blocks are aligned
/// to eight bytes, so the lowest bit of a handle is clear.
using pool_ref = u32;
inline constexpr pool_ref no_block = 0;

class pool {
  public:
    static constexpr u32 chunk_size = 1 << 20;
    static constexpr u32 page_size = 4096;
    /// The range that handles can address.
    static constexpr u64 max_bytes = u64{1} << 34;

    /// Sizes up to small_limit are rounded up to a multiple of size_step; each multiple is a size
    /// class.  Sizes from there up to large_limit share one class, with three blocks to a page.
    static constexpr u32 size_step = 8;
    static constexpr u32 small_limit = 512;
    static constexpr u32 large_limit = 1352;

    /// A pool that grows to at most `limit` bytes from `source`; to less, possibly nothing, if the
    /// system refuses to reserve that much.
    pool(const allocator& source, u64 limit);
    pool(const pool&) = delete;
    pool& operator=(const pool&) = delete;

    /// The memory of a block.  At least page_size bytes after the block are readable.
    u8* at(pool_ref block) const { return base_ + (usize{block} << ref_shift); }

    /// Returns a block of at least `size` bytes (0 counts as 1); no_block without memory, or for a
    /// size above large_limit.
    [[nodiscard]] pool_ref alloc(u32 size);

    /// Frees a block; ignores no_block.
    void free(pool_ref block);

    /// Resizes a block to hold `size` bytes, and returns it or the block its content has moved to.
    /// A block that is large enough stays in place if it is of the large class, or more than three
    /// quarters of it are used.  Without memory, or for a size above large_limit, returns no_block
    /// and leaves the block unchanged.  For no_block it is alloc().
    [[nodiscard]] pool_ref realloc(pool_ref block, u32 size);

    /// True if a possibly stale handle points into committed memory with room for any block.
    bool is_readable(pool_ref block) const
    {
        return (u64{block} << ref_shift) + large_limit <= u64{chunks_used_} * chunk_size;
    }

    /// Prefetches the header of the block's page, which realloc() and free() need.
    void prefetch_page(pool_ref block) const { __builtin_prefetch(page_of(block)); }

    /// Chunks in use.
    u32 chunk_count() const { return chunk_count_; }

  private:
    static constexpr u32 ref_shift = 2;
    static constexpr usize min_large_page_range = usize{8} << 20;
    static constexpr u32 pages_per_chunk = chunk_size / page_size;
    static constexpr u32 large_class = small_limit / size_step;
    static constexpr u32 classes = large_class + 1;

    /// Header of each page.
    struct page {
        u32 used;           // blocks in use
        pool_ref free_head; // the first free block; each starts with the handle of the next
        page* next;         // in the bin, or in the chunk's list of free pages
        page* prev;         // in the bin
        u16 size_class;
        u16 bump;     // offset of the first block that was never in use
        u16 bump_end; // the last offset at which a block fits
    };
    static constexpr u32 page_header_size = 32;
    static constexpr u16 no_class = 0xFFFF; // size class of a page that was never in use
    static_assert(sizeof(page) <= page_header_size);

    struct chunk {
        u8* next_page; // the first page that was never in use
        u32 free_pages;
        page* page_list; // pages that were freed
        chunk* next;     // in the list of chunks with free pages, or of spare chunks
        chunk* prev;     // in the list of chunks with free pages
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

    pool_ref ref_of(const u8* block) const
    {
        return static_cast<pool_ref>(static_cast<usize>(block - base_) >> ref_shift);
    }
    page* page_of(pool_ref block) const
    {
        constexpr u32 units = page_size >> ref_shift;
        return reinterpret_cast<page*>(at(block / units * units));
    }
    chunk* chunk_of(const page* inside) const
    {
        const auto offset = static_cast<usize>(reinterpret_cast<const u8*>(inside) - base_);
        return chunks_.get() + offset / chunk_size;
    }
    u8* base_of(const chunk* record) const
    {
        return base_ + static_cast<usize>(record - chunks_.get()) * chunk_size;
    }
    pool_ref next_free(pool_ref block) const { return load_u32(at(block)); }
    void set_next_free(pool_ref block, pool_ref next) const { store_u32(at(block), next); }

    pool_ref alloc_in_new_page(u32 size_class);
    bool add_chunk();
    page* take_page();
    void format(page& fresh, u32 size_class);
    void add_to_bin(page& added);
    void remove_from_bin(page& removed);
    void free_page(page& freed);
    void remove_chunk(chunk& removed);
    void free_chunk(chunk& freed);
    void reposition(chunk& moved);

    owned_array<u8> range_; // reserved addresses
    u8* base_ = nullptr;    // start of range_
    usize size_ = 0;        // of range_ without its last page
    owned_array<chunk> chunks_;
    u32 chunks_used_ = 0;               // chunks that were ever in use
    u32 chunk_count_ = 0;               // chunks in use
    chunk* spare_ = nullptr;            // chunks that were freed
    chunk* current_ = nullptr;          // chunks with free pages, by ascending number of them
    std::array<page*, classes> bins_{}; // pages with room, by size class
};

} // namespace quarnex
