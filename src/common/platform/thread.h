// common/platform/thread.h - a thread whose failure to start is a value
#pragma once

#include <pthread.h>

namespace quarnex {

/// A running thread, or none.
class system_thread {
  public:
    system_thread() = default;
    /// Joins the thread, if there is one.
    ~system_thread() { join(); }
    system_thread(const system_thread&) = delete;
    system_thread& operator=(const system_thread&) = delete;

    /// Runs `body(context)` in a new thread; there must be none so far.  Returns false if it can't
    /// be started.
    [[nodiscard]] bool start(void (*body)(void* context), void* context);
    /// Waits for the thread's end, if there is one; then there is none.
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
