#include "pipeline/displacement_window.h"

namespace quarnex {

void displacement_window::wait_to_enter(u32 index)
{
    scoped_lock lock(mutex_);
    while (index - oldest_ > reach) moved_.wait(mutex_);
}

void displacement_window::settle(u32 index)
{
    scoped_lock lock(mutex_);
    settled_.set(index % settled_.size());
    while (settled_.test(oldest_ % settled_.size())) {
        settled_.reset(oldest_ % settled_.size());
        ++oldest_;
    }
    moved_.notify_one();
}

} // namespace quarnex
