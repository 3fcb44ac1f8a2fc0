// common/platform/thread.h - a thread; failure to start is a return value, not an exception
#pragma once

#include <pthread.h>

namespace quarnex {

/// A running thread, or none.
class system_thread {
  public:
    system_thread() = default;
    /// Joins the thread, if one is running.
    ~system_thread() { join(); }
    system_thread(const system_thread&) = delete;
    system_thread& operator=(const system_thread&) = delete;

    /// Runs `body(context)` in a new thread.  None may be running.  Returns false if the thread
    /// cannot be started.
    [[nodiscard]] bool start(void (*body)(void* context), void* context);
    /// Waits for the thread, if one is running, to end.
    void join();

    bool started() const { return started_; }

  private:
    static void* run(void* self);

    void (*body_)(void* context) = nullptr;
    void* context_ = nullptr;
    pthread_t thread_{};
    bool started_ = false;
};

} // namespace quarnex
