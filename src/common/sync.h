// common/sync.h - mutex and condition variable that Clang's thread-safety analysis understands
//
// Thin covers of the standard ones.  Data that a mutex guards is marked GUARDED_BY, and a build
// with Clang refuses code that touches it without the lock.
#pragma once

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define QUARNEX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QUARNEX_THREAD_ANNOTATION(x)
#endif
#define GUARDED_BY(x) QUARNEX_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) QUARNEX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))

namespace quarnex {

class QUARNEX_THREAD_ANNOTATION(capability("mutex")) guard_mutex {
  public:
    void lock() QUARNEX_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
    void unlock() QUARNEX_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

  private:
    friend class guard_condition;
    std::mutex mutex_;
};

/// Holds a mutex for the length of a scope.
class QUARNEX_THREAD_ANNOTATION(scoped_lockable) scoped_lock {
  public:
    explicit scoped_lock(guard_mutex& mutex) QUARNEX_THREAD_ANNOTATION(acquire_capability(mutex))
        : mutex_(mutex)
    {
        mutex_.lock();
    }
    ~scoped_lock() QUARNEX_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
    scoped_lock(const scoped_lock&) = delete;
    scoped_lock& operator=(const scoped_lock&) = delete;

  private:
    guard_mutex& mutex_;
};

/// A condition variable.  Waits can end without a reason: callers test their condition in a loop.
class guard_condition {
  public:
    /// Releases `mutex`, which the caller holds, waits, and takes it again.
    void wait(guard_mutex& mutex) REQUIRES(mutex)
    {
        std::unique_lock lock(mutex.mutex_, std::adopt_lock);
        condition_.wait(lock);
        lock.release();
    }
    void notify_one() { condition_.notify_one(); }

  private:
    std::condition_variable condition_;
};

} // namespace quarnex
