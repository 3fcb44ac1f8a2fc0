// support/limits.h - resource limits for a program under test
//
// Each of these goes into program_options::before_exec.  If the system doesn't permit the setup,
// the child exits with status_not_set_up instead of executing the program.
#pragma once

#include <functional>
#include <string>
#include <sys/resource.h>

namespace quarnex::test {

inline constexpr int status_not_set_up = 125;

/// True if the tests and the program are built with a sanitizer that maps huge address ranges and
/// can't run with limits on the address space.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool under_sanitizer = true;
#elif defined(__has_feature)
inline constexpr bool under_sanitizer =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool under_sanitizer = false;
#endif

/// Sets the soft limit of a resource (RLIMIT_FSIZE, ...).
std::function<void()> limit(int resource, rlim_t value);

/// Makes file permissions bind the superuser too.
void obey_permissions();

/// Mounts an empty file system of `bytes` bytes over `directory`, visible only to the program and
/// removed when it ends.
std::function<void()> small_disk(std::string directory, unsigned bytes);

} // namespace quarnex::test
