// support/scoped_limits.h - limits of this process for a scope
#pragma once

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace quarnex::test {

class process_limit {
  public:
    process_limit(__rlimit_resource resource, rlim_t value) : resource_(resource)
    {
        if (getrlimit(resource_, &before_) != 0) std::abort();
        const rlimit limits{std::min(value, before_.rlim_max), before_.rlim_max};
        if (setrlimit(resource_, &limits) != 0) std::abort();
    }
    ~process_limit() { setrlimit(resource_, &before_); }
    process_limit(const process_limit&) = delete;
    process_limit& operator=(const process_limit&) = delete;

  private:
    const __rlimit_resource resource_;
    rlimit before_{};
};

/// Limits the address space to the current size plus `spare` bytes.  First waits until the size is
/// stable, because new threads reserve address space for a moment.
class short_of_memory {
  public:
    explicit short_of_memory(rlim_t spare = rlim_t{128} << 20)
        : limit_(RLIMIT_AS, stable_address_space() + spare)
    {
    }

  private:
    static rlim_t stable_address_space()
    {
        rlim_t size = address_space();
        for (int quiet = 0; quiet < 5; ++quiet) {
            usleep(5000);
            const rlim_t now = address_space();
            if (now != size) quiet = 0;
            size = now;
        }
        return size;
    }

    static rlim_t address_space()
    {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    }
    process_limit limit_;
};

/// Limits the size of files to `max_size` bytes: writes beyond it fail with EFBIG.
class short_of_disk {
  public:
    explicit short_of_disk(rlim_t max_size)
        : before_(std::signal(SIGXFSZ, SIG_IGN)), limit_(RLIMIT_FSIZE, max_size)
    {
    }
    ~short_of_disk() { std::signal(SIGXFSZ, before_); }
    short_of_disk(const short_of_disk&) = delete;
    short_of_disk& operator=(const short_of_disk&) = delete;

  private:
    void (*before_)(int);
    process_limit limit_;
};

/// Makes thread creation fail: the default stack size exceeds the address space.
class short_of_threads {
  public:
    short_of_threads()
    {
        if (pthread_getattr_default_np(&before_) != 0) std::abort();
        pthread_attr_t attributes = before_;
        if (pthread_attr_setstacksize(&attributes, too_many_bytes) != 0) std::abort();
        if (pthread_setattr_default_np(&attributes) != 0) std::abort();
    }
    ~short_of_threads() { pthread_setattr_default_np(&before_); }
    short_of_threads(const short_of_threads&) = delete;
    short_of_threads& operator=(const short_of_threads&) = delete;

  private:
    static constexpr std::size_t too_many_bytes = SIZE_MAX / 8 * 7;
    pthread_attr_t before_{};
};

} // namespace quarnex::test
