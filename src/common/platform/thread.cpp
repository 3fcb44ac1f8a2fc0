#include "common/platform/thread.h"

namespace quarnex {

bool system_thread::start(void (*body)(void* context), void* context)
{
    body_ = body;
    context_ = context;
    started_ = pthread_create(&thread_, nullptr, run, this) == 0;
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
