#include "common/platform/memory.h"

#include <cstdint>
#include <cstdlib>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace quarnex {

u64 address_space()
{
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof(status);
    return GlobalMemoryStatusEx(&status) != 0 ? status.ullTotalVirtual : UINTPTR_MAX;
}

// Large pages need a privilege that ordinary users lack.
void* allocate_for_large_pages(usize size)
{
    return std::malloc(size);
}

void prefer_large_pages(void* /*memory*/, usize /*size*/) {}

void* reserve_memory(usize size)
{
    return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_READWRITE);
}

bool commit_memory(void* memory, usize size)
{
    return VirtualAlloc(memory, size, MEM_COMMIT, PAGE_READWRITE) != nullptr;
}

void discard_memory(void* memory, usize size)
{
    VirtualAlloc(memory, size, MEM_RESET, PAGE_READWRITE);
}

void release_memory(void* memory, usize /*size*/)
{
    VirtualFree(memory, 0, MEM_RELEASE);
}

} // namespace quarnex
