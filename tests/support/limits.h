// support/limits.h - hard conditions for a program under test
//
// Each of these goes into program_options::before_exec.  Where the system doesn't let them be set
// up, the child ends with status_not_set_up instead of becoming the program.
#pragma once

#include <functional>
#include <string>
#include <sys/resource.h>

namespace quarnex::test {

inline constexpr int status_not_set_up = 125;

/// Whether the tests and the program are built with a sanitizer that maps address space without
/// end and can't live with limits on it.
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

/// Makes the permissions of files hold for the superuser too.
void obey_permissions();

/// Puts an empty file system of `bytes` bytes over `directory`; only the program sees it, and it is
/// gone at its end.
std::function<void()> small_disk(std::string directory, unsigned bytes);

} // namespace quarnex::test
