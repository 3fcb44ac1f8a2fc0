// common/allocator.h - where the core gets its memory
//
// Everything the core allocates comes from an allocator that its caller names, so that a caller can
// count, limit or refuse memory.  An allocator is called by several threads at the same time.
#pragma once

#include "common/types.h"

namespace quarnex {

/// What a piece of memory is for.  Its owner passes the same kind and size when it gives it back.
enum class memory_kind : u8 {
    plain,       // undefined content
    zeroed,      // all zero; large pieces are fresh pages, which cost nothing until touched
    large_pages, // undefined content, in large pages where the system has them
    reserved,    // address space, used piecewise (commit_memory() in common/platform/memory.h)
};

struct allocator {
    /// Returns `size` bytes (1 or more), aligned for any type, or null.
    void* (*allocate)(void* context, usize size, memory_kind kind);
    /// Takes back what allocate() returned for the same `size` and `kind`.
    void (*release)(void* context, void* memory, usize size, memory_kind kind);
    void* context;
};

/// The memory of the system.
extern const allocator system_allocator;

} // namespace quarnex
