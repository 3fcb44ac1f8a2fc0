#include "common/allocator.h"

#include "common/platform/memory.h"

#include <cstdlib>

namespace quarnex {
namespace {

void* allocate(void* /*context*/, usize size, memory_kind kind)
{
    switch (kind) {
    case memory_kind::plain:
        return std::malloc(size);
    case memory_kind::zeroed:
        return std::calloc(size, 1);
    case memory_kind::large_pages: {
        void* const memory = allocate_for_large_pages(size);
        if (memory != nullptr) prefer_large_pages(memory, size);
        return memory;
    }
    case memory_kind::reserved:
        return reserve_memory(size);
    }
    return nullptr;
}

void release(void* /*context*/, void* memory, usize size, memory_kind kind)
{
    if (kind == memory_kind::reserved)
        release_memory(memory, size);
    else
        std::free(memory);
}

} // namespace

const allocator system_allocator{allocate, release, nullptr};

} // namespace quarnex
