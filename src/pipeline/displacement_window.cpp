#include "pipeline/displacement_window.h"

namespace quarnex {

void displacement_window::wait_to_enter(u32 index)
{
    scoped_lock lock(mutex_);
    while (index - oldest_ > max_lead) moved_.wait(mutex_);
}

void displacement_window::mark_done(u32 index)
{
    scoped_lock lock(mutex_);
    done_[index % done_.size()] = true;
    while (done_[oldest_ % done_.size()]) {
        done_[oldest_ % done_.size()] = false;
        ++oldest_;
    }
    moved_.notify_one();
}

} // namespace quarnex
