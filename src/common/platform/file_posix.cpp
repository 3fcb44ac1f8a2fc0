#include "common/platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarnex {
namespace {

constexpr usize max_request = usize{1} << 30; // some systems limit a single call
constexpr mode_t new_file_mode = 0666;        // minus the umask
constexpr int new_file_flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;

/// Calls `read(done, request)` until `size` bytes are read, or the end of the file.
template <class Read>
read_result read_all(usize size, Read read)
{
    usize done = 0;
    while (done < size) {
        const ssize_t got = read(done, std::min(size - done, max_request));
        if (got > 0)
            done += static_cast<usize>(got);
        else if (got == 0)
            break;
        else if (errno != EINTR)
            return {done, errno};
    }
    return {done, 0};
}

/// Calls `write(src, request)` until `size` bytes are written.  Returns errno, or 0 on success.
template <class Write>
int write_all(const u8* src, usize size, Write write)
{
    while (size != 0) {
        const ssize_t written = write(src, std::min(size, max_request));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return written < 0 ? errno : EIO;
        src += written;
        size -= static_cast<usize>(written);
    }
    return 0;
}

} // namespace

int system_file::open(const char* name)
{
    descriptor_ = ::open(name, O_RDONLY | O_CLOEXEC);
    return is_open() ? 0 : errno;
}

int system_file::create(const char* name)
{
    descriptor_ = ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, new_file_mode);
    return is_open() ? 0 : errno;
}

int system_file::create_new(const char* name)
{
    descriptor_ = ::open(name, new_file_flags, new_file_mode);
    return is_open() ? 0 : errno;
}

read_result system_file::read(u8* dest, usize size)
{
    return read_all(
        size, [&](usize done, usize request) { return ::read(descriptor_, dest + done, request); });
}

read_result system_file::read_at(u64 offset, u8* dest, usize size)
{
    if (offset > INT64_MAX - u64{size}) return {0, EINVAL};
    return read_all(size, [&](usize done, usize request) {
        return pread(descriptor_, dest + done, request, static_cast<off_t>(offset + done));
    });
}

int system_file::write(const u8* src, usize size)
{
    return write_all(src, size, [&](const u8* from, usize request) {
        return ::write(descriptor_, from, request);
    });
}

int system_file::write_at(u64 offset, const u8* src, usize size)
{
    if (offset > INT64_MAX - u64{size}) return EINVAL;
    return write_all(src, size, [&](const u8* from, usize request) {
        const u64 place = offset + static_cast<u64>(from - src);
        return pwrite(descriptor_, from, request, static_cast<off_t>(place));
    });
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

int system_file::flush()
{
    return fsync(descriptor_) == 0 || errno == EINVAL ? 0 : errno; // EINVAL: can't be flushed
}

int system_file::close()
{
    if (!is_open()) return 0;
    return ::close(std::exchange(descriptor_, no_file)) == 0 ? 0 : errno;
}

int system_directory::open(const char* name)
{
    // The first two need no permission to read the directory.
#if defined(O_PATH)
    constexpr int access = O_PATH;
#elif defined(O_SEARCH)
    constexpr int access = O_SEARCH;
#else
    constexpr int access = O_RDONLY;
#endif
    descriptor_ = ::open(name, access | O_DIRECTORY | O_CLOEXEC);
    return descriptor_ >= 0 ? 0 : errno;
}

void system_directory::close()
{
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

int system_directory::create_new(const char* name, system_file& file) const
{
    file.descriptor_ = openat(descriptor_, name, new_file_flags, new_file_mode);
    return file.is_open() ? 0 : errno;
}

int system_directory::rename(const char* name, const char* new_name) const
{
    return renameat(descriptor_, name, descriptor_, new_name) == 0 ? 0 : errno;
}

void system_directory::remove(const char* name) const
{
    unlinkat(descriptor_, name, 0);
}

u32 max_open_files()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return _POSIX_OPEN_MAX;
    return static_cast<u32>(std::min<rlim_t>(limit.rlim_cur, UINT32_MAX));
}

int check_replaceable(const char* name)
{
    struct stat status {};
    // Follows links: replacing /dev/stdout, for one, would break the system.
    if (stat(name, &status) == 0) return S_ISREG(status.st_mode) ? 0 : EEXIST;
    return errno == ENOENT && name[0] != 0 ? 0 : errno;
}

} // namespace quarnex
