#include "schedules/shim.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

// All atomic variables here are relaxed, so that the shim doesn't order what the product leaves
// unordered.

namespace quarnex::test {
namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr u32 max_threads = 256; // in a run

/// How the threads of a run are delayed.
enum class style : u8 { none, short_sleeps, mixed, one_slow, long_sleeps };
constexpr u32 styles = 5;

/// What a thread does, for the report of a run that hangs.
struct place {
    std::atomic<const char*> call{nullptr};
    std::atomic<const void*> object{nullptr};
    std::atomic<bool> is_inside{false}; // or past it
};

std::atomic<u64> run_number{0}; // 0: none
std::atomic<u64> run_seed{0};
std::atomic<time_t> deadline{0};
std::atomic<bool> is_running{false};
std::atomic<u32> threads_made{0};
std::atomic<u64> points{0};
std::array<place, max_threads> places;

std::atomic<failing_call> doomed_call{failing_call::none};
std::atomic<u32> doomed_number{0};
std::atomic<bool> has_failed{false};

struct thread_state {
    u64 run = 0;
    u64 random = 0;
    u32 number = 0; // 0: the thread of main(), or not numbered yet
};
thread_local thread_state self;

u64 mix(u64 value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

u32 next_random()
{
    self.random += 0x9E3779B97F4A7C15U;
    return static_cast<u32>(mix(self.random) >> 32);
}

bool one_in(u32 number)
{
    return next_random() % number == 0;
}

void sleep_for(u32 microseconds)
{
    const timespec time{0, static_cast<long>(microseconds) * 1000};
    nanosleep(&time, nullptr);
}

void spin(u32 rounds)
{
    for (u32 i = 0; i < rounds; ++i) asm volatile("" ::: "memory");
}

void start_thread_state(u32 number)
{
    self.run = run_number.load(relaxed);
    self.number = number;
    self.random = mix(run_seed.load(relaxed) + u64{number} * 0x51ED27U);
}

/// Delays the thread, or not.
void delay()
{
    if (!is_running.load(relaxed)) return;
    if (self.run != run_number.load(relaxed)) start_thread_state(self.number);
    points.fetch_add(1, relaxed);
    const u64 seed = run_seed.load(relaxed);
    switch (static_cast<style>(mix(seed) % styles)) {
    case style::none:
        break;
    case style::short_sleeps:
        if (one_in(2)) sleep_for(1);
        break;
    case style::mixed:
        // On a busy machine, each yield waits for all other processes.
        if (one_in(64)) sched_yield();
        if (one_in(8)) spin(next_random() % 2000);
        if (one_in(32)) sleep_for(next_random() % 50);
        break;
    case style::one_slow:
        if (self.number % 4 == (seed >> 8) % 4 && one_in(4)) sleep_for(next_random() % 200);
        break;
    case style::long_sleeps:
        if (one_in(8)) sleep_for(next_random() % 200);
        break;
    }
}

/// Delays a thread before and after a call, and notes where it is.
class lock_point {
  public:
    lock_point(const char* call, const void* object) : place_(places[self.number % max_threads])
    {
        place_.call.store(call, relaxed);
        place_.object.store(object, relaxed);
        delay();
        place_.is_inside.store(true, relaxed);
    }
    ~lock_point()
    {
        const int error = errno;
        place_.is_inside.store(false, relaxed);
        delay();
        errno = error;
    }
    lock_point(const lock_point&) = delete;
    lock_point& operator=(const lock_point&) = delete;

  private:
    place& place_;
};

/// Returns whether this call has to fail.
bool fails(failing_call kind)
{
    if (doomed_call.load(relaxed) != kind || doomed_number.fetch_sub(1, relaxed) != 1) return false;
    has_failed.store(true, relaxed);
    return true;
}

void print_places()
{
    for (u32 i = 0; i < max_threads; ++i) {
        const char* const call = places[i].call.load(relaxed);
        if (call == nullptr) continue;
        std::fprintf(stderr, "  thread %u: %s %s(%p)\n", i,
                     places[i].is_inside.load(relaxed) ? "in" : "at or after", call,
                     places[i].object.load(relaxed));
    }
}

void* watch(void*)
{
    for (;;) {
        sleep_for(500000);
        if (is_running.load(relaxed) && std::time(nullptr) > deadline.load(relaxed)) {
            print_places();
            report_fault("hangs");
        }
    }
}

struct thread_start {
    void* (*body)(void*);
    void* context;
    u32 number;
};

void* run_thread(void* given)
{
    const thread_start start = *static_cast<thread_start*>(given);
    std::free(given);
    start_thread_state(start.number);
    delay();
    void* const result = start.body(start.context);
    places[start.number % max_threads].call.store(nullptr, relaxed);
    delay();
    return result;
}

} // namespace
} // namespace quarnex::test

using namespace quarnex;
using namespace quarnex::test;

extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int __real_pthread_cond_signal(pthread_cond_t*);
int __real_pthread_cond_broadcast(pthread_cond_t*);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* context)
{
    const lock_point point("pthread_create", nullptr);
    if (fails(failing_call::start_thread)) return EAGAIN;
    auto* const start = static_cast<thread_start*>(std::malloc(sizeof(thread_start)));
    if (start == nullptr) return EAGAIN;
    *start = {body, context, threads_made.fetch_add(1, relaxed) + 1};
    const int error = __real_pthread_create(thread, attributes, run_thread, start);
    if (error != 0) std::free(start);
    return error;
}

int __wrap_pthread_join(pthread_t thread, void** result)
{
    const lock_point point("pthread_join", nullptr);
    return __real_pthread_join(thread, result);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    const lock_point point("pthread_mutex_lock", mutex);
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    const lock_point point("pthread_mutex_unlock", mutex);
    return __real_pthread_mutex_unlock(mutex);
}

/// Sometimes wakes up spuriously.
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    const lock_point point("pthread_cond_wait", condition);
    if (!is_running.load(relaxed) || !one_in(16)) return __real_pthread_cond_wait(condition, mutex);
    __real_pthread_mutex_unlock(mutex);
    delay();
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition)
{
    const lock_point point("pthread_cond_signal", condition);
    return __real_pthread_cond_signal(condition);
}

int __wrap_pthread_cond_broadcast(pthread_cond_t* condition)
{
    const lock_point point("pthread_cond_broadcast", condition);
    return __real_pthread_cond_broadcast(condition);
}

ssize_t __real_read(int, void*, size_t);
ssize_t __real_write(int, const void*, size_t);
ssize_t __real_pwrite(int, const void*, size_t, off_t);
ssize_t __real_pwrite64(int, const void*, size_t, off_t);
int __real_open(const char*, int, ...);
int __real_open64(const char*, int, ...);
int __real_close(int);

ssize_t __wrap_read(int file, void* dest, size_t size)
{
    const lock_point point("read", nullptr);
    if (!fails(failing_call::read)) return __real_read(file, dest, size);
    errno = EIO;
    return -1;
}

ssize_t __wrap_write(int file, const void* src, size_t size)
{
    const lock_point point("write", nullptr);
    if (!fails(failing_call::write)) return __real_write(file, src, size);
    errno = ENOSPC;
    return -1;
}

ssize_t __wrap_pwrite(int file, const void* src, size_t size, off_t offset)
{
    const lock_point point("pwrite", nullptr);
    if (!fails(failing_call::write)) return __real_pwrite(file, src, size, offset);
    errno = ENOSPC;
    return -1;
}

ssize_t __wrap_pwrite64(int file, const void* src, size_t size, off_t offset)
{
    const lock_point point("pwrite64", nullptr);
    if (!fails(failing_call::write)) return __real_pwrite64(file, src, size, offset);
    errno = ENOSPC;
    return -1;
}

int __wrap_open(const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    const lock_point point("open", nullptr);
    if (!fails(failing_call::open)) return __real_open(name, flags, mode);
    errno = EMFILE;
    return -1;
}

int __wrap_open64(const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    const lock_point point("open64", nullptr);
    if (!fails(failing_call::open)) return __real_open64(name, flags, mode);
    errno = EMFILE;
    return -1;
}

int __wrap_close(int file)
{
    const lock_point point("close", nullptr);
    const int result = __real_close(file);
    if (!fails(failing_call::close)) return result;
    errno = EIO;
    return -1;
}

#ifdef QUARNEX_WRAP_ATOMICS

#define WRAP_LOAD(bits, type)                                                                      \
    type __real___tsan_atomic##bits##_load(const volatile type*, int);                             \
    type __wrap___tsan_atomic##bits##_load(const volatile type* object, int order)                 \
    {                                                                                              \
        delay();                                                                                   \
        return __real___tsan_atomic##bits##_load(object, order);                                   \
    }
#define WRAP_UPDATE(bits, type, name)                                                              \
    type __real___tsan_atomic##bits##_##name(volatile type*, type, int);                           \
    type __wrap___tsan_atomic##bits##_##name(volatile type* object, type value, int order)         \
    {                                                                                              \
        delay();                                                                                   \
        return __real___tsan_atomic##bits##_##name(object, value, order);                          \
    }
#define WRAP_EXCHANGE(bits, type)                                                                  \
    type __real___tsan_atomic##bits##_compare_exchange_val(volatile type*, type, type, int, int);  \
    type __wrap___tsan_atomic##bits##_compare_exchange_val(                                        \
        volatile type* object, type expected, type value, int order, int failure_order)            \
    {                                                                                              \
        delay();                                                                                   \
        return __real___tsan_atomic##bits##_compare_exchange_val(object, expected, value, order,   \
                                                                 failure_order);                   \
    }

WRAP_LOAD(8, u8)
WRAP_LOAD(32, u32)
WRAP_LOAD(64, u64)
WRAP_UPDATE(32, u32, fetch_add)
WRAP_UPDATE(32, u32, fetch_sub)
WRAP_UPDATE(64, u64, fetch_add)
WRAP_UPDATE(64, u64, fetch_sub)
WRAP_EXCHANGE(8, u8)
WRAP_EXCHANGE(64, u64)

void __sanitizer_set_death_callback(void (*)(void));

/// Options of the thread sanitizer, which it asks for when it starts.
const char* __tsan_default_options()
{
    return "halt_on_error=1:second_deadlock_stack=1:history_size=4";
}

#endif
}

namespace quarnex::test {

void begin_run(u64 seed, u32 max_seconds)
{
    if (run_number.load(relaxed) == 0) {
#ifdef QUARNEX_WRAP_ATOMICS
        __sanitizer_set_death_callback([] {
            std::fprintf(stderr, "seed %llu: the thread sanitizer reports\n",
                         static_cast<unsigned long long>(run_seed.load(relaxed)));
        });
#endif
        pthread_t watcher;
        if (__real_pthread_create(&watcher, nullptr, watch, nullptr) != 0) std::abort();
        pthread_detach(watcher);
    }
    for (place& each : places) each.call.store(nullptr, relaxed);
    run_seed.store(seed, relaxed);
    run_number.fetch_add(1, relaxed);
    threads_made.store(0, relaxed);
    deadline.store(std::time(nullptr) + max_seconds, relaxed);
    is_running.store(true, relaxed);
    start_thread_state(0);
}

void end_run()
{
    is_running.store(false, relaxed);
    doomed_call.store(failing_call::none, relaxed);
}

void fail_call(failing_call kind, u32 number)
{
    has_failed.store(false, relaxed);
    doomed_number.store(number, relaxed);
    doomed_call.store(kind, relaxed);
}

bool call_failed()
{
    return has_failed.load(relaxed);
}

u64 passed_points()
{
    return points.load(relaxed);
}

void report_fault(const char* what)
{
    std::fprintf(stderr, "seed %llu: %s\n", static_cast<unsigned long long>(run_seed.load(relaxed)),
                 what);
    std::fflush(nullptr);
    _exit(1);
}

} // namespace quarnex::test
