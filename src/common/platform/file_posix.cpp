#include "common/platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarnex {
namespace {

constexpr usize max_request = usize{1} << 30; // some systems limit a single call

} // namespace

int system_file::open(const char* name)
{
    descriptor_ = ::open(name, O_RDONLY | O_CLOEXEC);
    return is_open() ? 0 : errno;
}

int system_file::create(const char* name)
{
    constexpr mode_t mode = 0666; // minus the umask
    descriptor_ = ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    return is_open() ? 0 : errno;
}

read_result system_file::read(u8* dest, usize size)
{
    usize done = 0;
    while (done < size) {
        const ssize_t got = ::read(descriptor_, dest + done, std::min(size - done, max_request));
        if (got > 0)
            done += static_cast<usize>(got);
        else if (got == 0)
            break;
        else if (errno != EINTR)
            return {done, errno};
    }
    return {done, 0};
}

int system_file::write(const u8* src, usize size)
{
    while (size != 0) {
        const ssize_t written = ::write(descriptor_, src, std::min(size, max_request));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return written < 0 ? errno : EIO;
        src += written;
        size -= static_cast<usize>(written);
    }
    return 0;
}

int system_file::seek(u64 offset)
{
    static_assert(sizeof(off_t) == 8);
    if (offset > INT64_MAX) return EINVAL;
    return lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET) >= 0 ? 0 : errno;
}

u64 system_file::size() const
{
    struct stat status {};
    return fstat(descriptor_, &status) == 0 ? static_cast<u64>(status.st_size) : 0;
}

int system_file::close()
{
    if (!is_open()) return 0;
    return ::close(std::exchange(descriptor_, no_file)) == 0 ? 0 : errno;
}

} // namespace quarnex
