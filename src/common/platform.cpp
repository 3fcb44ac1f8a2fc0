#include "common/platform.h"

#include <pthread.h>
#include <thread>
#include <utility>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace quarnex {

u32 processor_count()
{
    const u32 count = std::thread::hardware_concurrency();
    return count != 0 ? count : 1;
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

struct system_thread::handle {
    std::function<void()> body;
    pthread_t thread;
};

system_thread::system_thread(std::function<void()> body) : handle_(new handle{std::move(body), {}})
{
    const auto run = [](void* argument) -> void* {
        static_cast<handle*>(argument)->body();
        return nullptr;
    };
    if (pthread_create(&handle_->thread, nullptr, run, handle_.get()) != 0) handle_.reset();
}

system_thread::~system_thread()
{
    if (handle_) pthread_join(handle_->thread, nullptr);
}

} // namespace quarnex
