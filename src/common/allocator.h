// common/allocator.h - the interface through which the engine and the codecs allocate
//
// They take all memory from an allocator that the caller passes in, which can count, limit or
// refuse it.  Several threads may call an allocator at the same time.
#pragma once

#include "common/types.h"

namespace quarnex {

/// Kind of an allocation.  It is released with the same kind and size.
enum class memory_kind : u8 {
    plain,       // undefined content
    zeroed,      // all zero; large allocations are fresh pages, which cost nothing until touched
    large_pages, // undefined content, in large pages where the system has them
    reserved,    // address space from reserve_memory() (common/platform/memory.h)
};

struct allocator {
    /// Returns `size` bytes (1 or more), aligned for any type; null on failure.
    void* (*allocate)(void* context, usize size, memory_kind kind);
    /// Frees what allocate() returned for the same `size` and `kind`; not called with null.
    void (*release)(void* context, void* memory, usize size, memory_kind kind);
    void* context;
};

/// Allocates from the C library and the operating system.
extern const allocator system_allocator;

} // namespace quarnex
