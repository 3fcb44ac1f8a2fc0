// common/sync.h - mutex and condition variable that Clang's thread-safety analysis understands
//
// Thin wrappers of POSIX threads, whose calls cannot fail as used here (the standard ones may
// throw). Data that a mutex protects is marked GUARDED_BY, and Clang rejects code that accesses it
// without the lock.
#pragma once

#include <pthread.h>

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
    guard_mutex() = default;
    ~guard_mutex() { pthread_mutex_destroy(&mutex_); }
    guard_mutex(const guard_mutex&) = delete;
    guard_mutex& operator=(const guard_mutex&) = delete;

    void lock() QUARNEX_THREAD_ANNOTATION(acquire_capability()) { pthread_mutex_lock(&mutex_); }
    void unlock() QUARNEX_THREAD_ANNOTATION(release_capability()) { pthread_mutex_unlock(&mutex_); }

  private:
    friend class guard_condition;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

/// Locks a mutex for the duration of a scope.
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

/// A condition variable.  Wake-ups can be spurious: callers test their condition in a loop.
class guard_condition {
  public:
    guard_condition() = default;
    ~guard_condition() { pthread_cond_destroy(&condition_); }
    guard_condition(const guard_condition&) = delete;
    guard_condition& operator=(const guard_condition&) = delete;

    /// Unlocks `mutex`, which the caller holds, waits, and locks it again.
    void wait(guard_mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&condition_, &mutex.mutex_); }
    void notify_one() { pthread_cond_signal(&condition_); }
    void notify_all() { pthread_cond_broadcast(&condition_); }

  private:
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

} // namespace quarnex
