#include "common/platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

namespace quarnex {
namespace {

constexpr usize max_request = usize{1} << 30; // the C runtime takes 31-bit sizes
constexpr int common_flags = _O_BINARY | _O_NOINHERIT;

using wide_path = std::array<wchar_t, 260>;

/// Appends the name of a file to that of its directory.  If that is too long, the result is empty,
/// and functions that get it fail with ENOENT.
wide_path joined(const wide_path& directory, const char* name)
{
    wide_path path = directory;
    const usize size = std::wcslen(path.data());
    const int room = static_cast<int>(path.size() - size);
    if (MultiByteToWideChar(CP_ACP, 0, name, -1, path.data() + size, room) == 0) path = {};
    return path;
}

} // namespace

int system_file::open(const char* name)
{
    descriptor_ = _open(name, _O_RDONLY | common_flags);
    return is_open() ? 0 : errno;
}

int system_file::create(const char* name)
{
    descriptor_ = _open(name, _O_WRONLY | _O_CREAT | _O_TRUNC | common_flags, _S_IREAD | _S_IWRITE);
    return is_open() ? 0 : errno;
}

int system_file::create_new(const char* name)
{
    descriptor_ = _open(name, _O_WRONLY | _O_CREAT | _O_EXCL | common_flags, _S_IREAD | _S_IWRITE);
    return is_open() ? 0 : errno;
}

read_result system_file::read(u8* dest, usize size)
{
    usize done = 0;
    while (done < size) {
        const auto request = static_cast<unsigned>(std::min(size - done, max_request));
        const int got = _read(descriptor_, dest + done, request);
        if (got < 0) return {done, errno};
        if (got == 0) break;
        done += static_cast<usize>(got);
    }
    return {done, 0};
}

read_result system_file::read_at(u64 offset, u8* dest, usize size)
{
    if (const int error = seek(offset); error != 0) return {0, error};
    return read(dest, size);
}

int system_file::write(const u8* src, usize size)
{
    while (size != 0) {
        const auto request = static_cast<unsigned>(std::min(size, max_request));
        const int written = _write(descriptor_, src, request);
        if (written <= 0) return written < 0 ? errno : EIO;
        src += written;
        size -= static_cast<usize>(written);
    }
    return 0;
}

int system_file::write_at(u64 offset, const u8* src, usize size)
{
    if (const int error = seek(offset); error != 0) return error;
    return write(src, size);
}

int system_file::seek(u64 offset)
{
    if (offset > INT64_MAX) return EINVAL;
    return _lseeki64(descriptor_, static_cast<i64>(offset), SEEK_SET) >= 0 ? 0 : errno;
}

u64 system_file::size() const
{
    const i64 size = _filelengthi64(descriptor_);
    return size > 0 ? static_cast<u64>(size) : 0;
}

int system_file::flush()
{
    return _commit(descriptor_) == 0 ? 0 : errno;
}

int system_file::close()
{
    if (!is_open()) return 0;
    return _close(std::exchange(descriptor_, no_file)) == 0 ? 0 : errno;
}

int system_directory::open(const char* name)
{
    const wide_path given = joined({}, name);
    close();
    // Two places stay free for a separator and the final zero.
    const DWORD capacity = max_path - 1;
    const DWORD size = GetFullPathNameW(given.data(), capacity, path_.data(), nullptr);
    if (size == 0 || size >= capacity) {
        close();
        return ENAMETOOLONG;
    }
    const usize end = path_[size - 1] == L'\\' ? size : size + 1;
    path_[end - 1] = L'\\';
    path_[end] = 0; // the call may leave other characters there
    return 0;
}

void system_directory::close()
{
    path_ = {};
}

int system_directory::create_new(const char* name, system_file& file) const
{
    file.descriptor_ = _wopen(joined(path_, name).data(),
                              _O_WRONLY | _O_CREAT | _O_EXCL | common_flags, _S_IREAD | _S_IWRITE);
    return file.is_open() ? 0 : errno;
}

int system_directory::rename(const char* name, const char* new_name) const
{
    constexpr DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    const wide_path from = joined(path_, name);
    const wide_path to = joined(path_, new_name);
    return MoveFileExW(from.data(), to.data(), flags) != 0 ? 0 : EACCES;
}

void system_directory::remove(const char* name) const
{
    static_cast<void>(_wunlink(joined(path_, name).data()));
}

u32 max_open_files()
{
    return 8192; // of the C runtime
}

int check_replaceable(const char* name)
{
    if (name[0] == 0) return ENOENT;
    const DWORD attributes = GetFileAttributesA(name);
    const bool is_directory =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return is_directory ? EEXIST : 0;
}

} // namespace quarnex
