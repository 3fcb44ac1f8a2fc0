// support/waiting.h - helpers for tests of blocking code
#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <thread>

namespace quarnex::test {

/// Aborts the process if a test hangs.
class time_guard {
  public:
    explicit time_guard(int seconds = 60)
        : watcher_([over = over_.get_future(), seconds] {
              if (over.wait_for(std::chrono::seconds(seconds)) == std::future_status::timeout)
                  std::abort();
          })
    {
    }
    ~time_guard()
    {
        over_.set_value();
        watcher_.join();
    }
    time_guard(const time_guard&) = delete;
    time_guard& operator=(const time_guard&) = delete;

  private:
    std::promise<void> over_;
    std::thread watcher_;
};

inline std::future<void> in_thread(std::function<void()> body)
{
    return std::async(std::launch::async, std::move(body));
}

/// Returns whether a thread is still running after 30 ms.  On a slow machine this may be true by
/// mistake.
inline bool still_waits(const std::future<void>& thread)
{
    return thread.wait_for(std::chrono::milliseconds(30)) == std::future_status::timeout;
}

/// Returns whether a condition becomes true within 20 seconds.
inline bool becomes_true(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::yield();
    }
    return true;
}

inline bool finishes(const std::future<void>& thread)
{
    return thread.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

} // namespace quarnex::test
