#include "common/platform/cpu.h"

#ifdef _WIN32
#include <pthread.h>
#else
#include <unistd.h>
#endif

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace quarnex {

// Same as std::thread::hardware_concurrency(), which would make C programs that link the static
// library depend on the C++ library.
u32 processor_count()
{
#ifdef _WIN32
    const long count = pthread_num_processors_np();
#else
    const long count = sysconf(_SC_NPROCESSORS_ONLN);
#endif
    return count > 0 ? static_cast<u32>(count) : 1;
}

u32 second_level_cache_kib()
{
#if defined(__x86_64__) || defined(__i386__)
    constexpr u32 cache_leaf = 0x80000006;
    if (__get_cpuid_max(0, nullptr) == 0) return 0;
    u32 eax = 0;
    u32 ebx = 0;
    u32 ecx = 0;
    u32 edx = 0;
    __cpuid(cache_leaf, eax, ebx, ecx, edx);
    return ecx >> 16;
#else
    return 0;
#endif
}

} // namespace quarnex
