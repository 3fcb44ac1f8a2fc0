#include "common/platform/thread.h"

#include "common/types.h"

#include <csignal>

namespace quarnex {

namespace {

#ifndef _WIN32
/// Some systems give a thread less by default than levels 8 and 9 take (up to 200 KiB).
constexpr usize min_stack_size = usize{512} << 10;
#endif

/// Creates a thread that handles no signals: those of the process belong to the caller's threads.
int create_thread(pthread_t& thread, void* (*body)(void*), void* context)
{
#ifdef _WIN32
    return pthread_create(&thread, nullptr, body, context);
#else
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes); error != 0) return error;
    usize stack_size = 0;
    pthread_attr_getstacksize(&attributes, &stack_size);
    if (stack_size < min_stack_size) pthread_attr_setstacksize(&attributes, min_stack_size);
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    const int error = pthread_create(&thread, &attributes, body, context);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
#endif
}

} // namespace

bool system_thread::start(void (*body)(void* context), void* context)
{
    body_ = body;
    context_ = context;
    started_ = create_thread(thread_, run, this) == 0;
    return started_;
}

void* system_thread::run(void* self)
{
    const auto* const thread = static_cast<system_thread*>(self);
    thread->body_(thread->context_);
    return nullptr;
}

void system_thread::join()
{
    if (started_) pthread_join(thread_, nullptr);
    started_ = false;
}

} // namespace quarnex
