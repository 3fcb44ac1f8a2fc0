#include "support/limits.h"

#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

namespace quarnex::test {
namespace {

void need(bool set_up)
{
    if (!set_up) _exit(status_not_set_up);
}

} // namespace

std::function<void()> limit(int resource, rlim_t value)
{
    return [=] {
        rlimit limits{};
        getrlimit(static_cast<__rlimit_resource>(resource), &limits);
        limits.rlim_cur = value;
        need(setrlimit(static_cast<__rlimit_resource>(resource), &limits) == 0);
    };
}

void obey_permissions()
{
    if (geteuid() != 0) return;
    // The exec that follows grants no capability outside the bounding set.
    need(prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0);
    need(prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) == 0);
}

std::function<void()> small_disk(std::string directory, unsigned bytes)
{
    return [directory = std::move(directory), size = "size=" + std::to_string(bytes)] {
        need(unshare(CLONE_NEWNS) == 0);
        need(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
        need(mount("tmpfs", directory.c_str(), "tmpfs", 0, size.c_str()) == 0);
    };
}

} // namespace quarnex::test
