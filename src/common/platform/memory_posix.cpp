#include "common/platform/memory.h"

#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>

namespace quarnex {

u64 address_space()
{
    return UINTPTR_MAX;
}

void* allocate_for_large_pages(usize size)
{
    if (size > SIZE_MAX - large_page_size) return nullptr;
    const usize rounded = (size + large_page_size - 1) / large_page_size * large_page_size;
    return std::aligned_alloc(large_page_size, rounded);
}

void prefer_large_pages(void* memory, usize size)
{
#if defined(MADV_HUGEPAGE)
    const auto begin = reinterpret_cast<usize>(memory);
    const usize skipped = (0 - begin) % large_page_size;
    if (size < skipped + large_page_size) return;
    const usize length = (size - skipped) / large_page_size * large_page_size;
    madvise(static_cast<u8*>(memory) + skipped, length, MADV_HUGEPAGE);
#else
    static_cast<void>(memory);
    static_cast<void>(size);
#endif
}

void* reserve_memory(usize size)
{
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return memory != MAP_FAILED ? memory : nullptr;
}

bool commit_memory(void* /*memory*/, usize /*size*/)
{
    return true; // pages are committed on first touch
}

void discard_memory(void* memory, usize size)
{
    madvise(memory, size, MADV_DONTNEED);
}

void release_memory(void* memory, usize size)
{
    munmap(memory, size);
}

} // namespace quarnex
