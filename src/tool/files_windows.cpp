#include "tool/files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <utility>
#include <vector>
#include <windows.h>

namespace tool {
namespace {

/// Times are counted in units of 100 ns from the year 1601.
constexpr int64_t ticks_per_second = 10'000'000;
constexpr int64_t unix_epoch_seconds = 11'644'473'600;

/// Largest number of bytes of one call.
constexpr size_t max_transfer = size_t{1} << 24;

/// Returns the errno value for the last error of the system.
int last_error()
{
    switch (GetLastError()) {
    case ERROR_SUCCESS:
        return 0;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
        return ENOENT;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        return EEXIST;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
        return EACCES;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
        return ENOSPC;
    case ERROR_TOO_MANY_OPEN_FILES:
        return EMFILE;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
        return ENOMEM;
    default:
        return EIO;
    }
}

HANDLE system_handle(intptr_t handle)
{
    return reinterpret_cast<HANDLE>(_get_osfhandle(static_cast<int>(handle)));
}

void split_time(FILETIME time, int64_t& seconds, int64_t& nanoseconds)
{
    const int64_t ticks = int64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    seconds = ticks / ticks_per_second - unix_epoch_seconds;
    nanoseconds = ticks % ticks_per_second * 100;
}

LARGE_INTEGER join_time(int64_t seconds, int64_t nanoseconds)
{
    LARGE_INTEGER time;
    time.QuadPart = (seconds + unix_epoch_seconds) * ticks_per_second + nanoseconds / 100;
    return time;
}

/// Returns a name for the system, which limits names to MAX_PATH characters (in directories, 12
/// less) unless they are absolute and have a prefix.
std::wstring system_name(const path& name)
{
    constexpr size_t max_unprefixed = MAX_PATH - 12 - 1;
    std::vector<wchar_t> full(32768);
    const DWORD length =
        GetFullPathNameW(name.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length <= max_unprefixed || length >= full.size()) return name.native();
    const std::wstring absolute(full.data(), length);
    if (absolute.compare(0, 2, L"\\\\") != 0) return L"\\\\?\\" + absolute;
    const bool is_prefixed =
        absolute.compare(2, 2, L"?\\") == 0 || absolute.compare(2, 2, L".\\") == 0;
    return is_prefixed ? absolute : L"\\\\?\\UNC" + absolute.substr(1);
}

/// Whether a reparse point is a symbolic link or a mount point; others, such as those of cloud
/// storage, are ordinary files.
bool is_link_handle(HANDLE handle)
{
    FILE_ATTRIBUTE_TAG_INFO found{};
    if (GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &found, sizeof found) == 0)
        return false;
    return (found.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (found.ReparseTag == IO_REPARSE_TAG_SYMLINK ||
            found.ReparseTag == IO_REPARSE_TAG_MOUNT_POINT);
}

int read_traits(HANDLE handle, file_traits& traits)
{
    traits = {};
    if (GetFileType(handle) != FILE_TYPE_DISK) return 0; // a pipe, a console
    BY_HANDLE_FILE_INFORMATION found{};
    if (GetFileInformationByHandle(handle, &found) == 0) return last_error();
    traits.device = found.dwVolumeSerialNumber;
    traits.number = uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow;
    traits.size = uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
    traits.links = found.nNumberOfLinks;
    traits.mode = (found.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0444 : 0666;
    split_time(found.ftLastAccessTime, traits.read_seconds, traits.read_nanoseconds);
    split_time(found.ftLastWriteTime, traits.write_seconds, traits.write_nanoseconds);
    traits.is_link = is_link_handle(handle);
    traits.is_directory =
        !traits.is_link && (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    traits.is_regular = !traits.is_directory && !traits.is_link;
    return 0;
}

/// Reads until `size` bytes or the end of the file.
int read_fully(int handle, void* dest, size_t size, size_t& got)
{
    got = 0;
    while (got < size) {
        const auto part = static_cast<unsigned>(std::min(size - got, max_transfer));
        const int count = _read(handle, static_cast<char*>(dest) + got, part);
        if (count < 0) return errno;
        if (count == 0) return 0;
        got += static_cast<size_t>(count);
    }
    return 0;
}

int read_range(intptr_t handle, uint64_t offset, void* dest, size_t size, size_t& got)
{
    got = 0;
    if (_lseeki64(static_cast<int>(handle), static_cast<int64_t>(offset), SEEK_SET) < 0)
        return errno;
    return read_fully(static_cast<int>(handle), dest, size, got);
}

/// Sets or clears whether a file is deleted when the process ends, for whatever reason.
bool set_deleted_at_end(HANDLE handle, bool is_deleted)
{
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = is_deleted ? TRUE : FALSE;
    return SetFileInformationByHandle(handle, FileDispositionInfo, &disposition,
                                      sizeof disposition) != 0;
}

std::string to_utf8(const wchar_t* text, size_t size)
{
    const auto length = static_cast<int>(size);
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string converted(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, length, converted.data(), needed, nullptr, nullptr);
    return converted;
}

} // namespace

int traits_of(const path& name, bool follows_links, file_traits& traits)
{
    const DWORD flags =
        FILE_FLAG_BACKUP_SEMANTICS | (follows_links ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
    const HANDLE handle = CreateFileW(system_name(name).c_str(), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, flags, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return last_error();
    const int error = read_traits(handle, traits);
    CloseHandle(handle);
    return error;
}

input_file::~input_file()
{
    if (is_owned_) _close(static_cast<int>(handle_));
}

int input_file::open(const path& name)
{
    file_traits named;
    if (traits_of(name, true, named) == 0 && named.is_directory) return EISDIR;
    // Shared completely: --rm removes files that are still open.
    const HANDLE opened = CreateFileW(system_name(name).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) return last_error();
    const int handle = _open_osfhandle(reinterpret_cast<intptr_t>(opened), _O_RDONLY | _O_BINARY);
    if (handle < 0) {
        CloseHandle(opened);
        return EMFILE;
    }
    handle_ = handle;
    is_owned_ = true;
    const int unread = read_traits(system_handle(handle), traits_);
    size_ = traits_.is_regular ? traits_.size : 0;
    is_seekable_ = size_ != 0;
    return unread;
}

int input_file::open_stdin()
{
    handle_ = _fileno(stdin);
    if (handle_ < 0) return EBADF;
    // A file that the system doesn't describe is read like a pipe.
    if (read_traits(system_handle(handle_), traits_) != 0) traits_ = {};
    const int64_t position = traits_.is_regular ? _telli64(static_cast<int>(handle_)) : -1;
    if (position >= 0) {
        start_ = static_cast<uint64_t>(position);
        size_ = traits_.size - std::min(start_, traits_.size);
        is_seekable_ = size_ != 0;
    }
    return 0;
}

int input_file::read_at(uint64_t offset, void* dest, size_t size, size_t& got) const
{
    return read_range(handle_, start_ + offset, dest, size, got);
}

int input_file::read(void* dest, size_t size, size_t& got)
{
    return read_fully(static_cast<int>(handle_), dest, size, got);
}

struct output_file::state {
    int handle = -1;
    std::wstring name;           // as the system wants it, like the next
    std::wstring temporary_name; // empty for standard output and after finish()
    FILE_BASIC_INFO traits{};    // to be set by finish()
    bool is_stdout = false;
    bool is_seekable = true;
    uint64_t start = 0;    // offset 0 of standard output
    uint64_t position = 0; // of standard output that isn't seekable
    uint64_t end = 0;

    int create_beside(const path& final_name);
    int give_name(bool replaces, bool syncs);
    void discard();
};

output_file::output_file() : state_(std::make_unique<state>()) {}

output_file::~output_file()
{
    state_->discard();
}

void output_file::state::discard()
{
    if (handle >= 0 && !is_stdout) _close(handle); // deletes it
    handle = -1;
    if (temporary_name.empty()) return;
    SetFileAttributesW(temporary_name.c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileW(temporary_name.c_str());
    temporary_name.clear();
}

int output_file::state::create_beside(const path& final_name)
{
    name = system_name(final_name);
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        const std::wstring number =
            std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(attempt);
        temporary_name = system_name(final_name.parent_path() / (L".qrx-" + number));
        const HANDLE made =
            CreateFileW(temporary_name.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                        FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                        FILE_ATTRIBUTE_NORMAL, nullptr);
        if (made == INVALID_HANDLE_VALUE) {
            const int error = last_error();
            if (error == EEXIST) continue;
            temporary_name.clear();
            return error;
        }
        set_deleted_at_end(made, true);
        handle = _open_osfhandle(reinterpret_cast<intptr_t>(made), _O_BINARY);
        if (handle >= 0) return 0;
        CloseHandle(made);
        return EMFILE;
    }
    temporary_name.clear();
    return EEXIST;
}

int output_file::create(const path& name)
{
    return state_->create_beside(name);
}

int output_file::create_temporary()
{
    std::error_code error;
    const path directory = std::filesystem::temp_directory_path(error);
    return error ? ENOENT : state_->create_beside(directory / "qrx");
}

int output_file::open_stdout()
{
    state_->handle = _fileno(stdout);
    if (state_->handle < 0) return EBADF;
    state_->is_stdout = true;
    const bool is_disk = GetFileType(system_handle(state_->handle)) == FILE_TYPE_DISK;
    const int64_t position = is_disk ? _telli64(state_->handle) : -1;
    state_->is_seekable = position >= 0;
    if (position >= 0) state_->start = static_cast<uint64_t>(position);
    return 0;
}

bool output_file::is_seekable() const
{
    return state_->is_seekable;
}

int output_file::write_at(uint64_t offset, const void* src, size_t size)
{
    state& file = *state_;
    if (!file.is_seekable && offset != file.position) return ESPIPE;
    const auto place = static_cast<int64_t>(file.start + offset);
    if (file.is_seekable && _lseeki64(file.handle, place, SEEK_SET) < 0) return errno;
    for (size_t done = 0; done < size;) {
        const auto part = static_cast<unsigned>(std::min(size - done, max_transfer));
        const int count = _write(file.handle, static_cast<const char*>(src) + done, part);
        if (count <= 0) return count < 0 ? errno : ENOSPC;
        done += static_cast<size_t>(count);
    }
    file.position = offset + size;
    file.end = std::max(file.end, file.position);
    return 0;
}

int output_file::read_at(uint64_t offset, void* dest, size_t size, size_t& got) const
{
    return read_range(state_->handle, offset, dest, size, got);
}

void output_file::take_traits(const file_traits& traits)
{
    if (state_->is_stdout || !traits.is_regular) return;
    FILE_BASIC_INFO& info = state_->traits;
    info.LastAccessTime = join_time(traits.read_seconds, traits.read_nanoseconds);
    info.LastWriteTime = join_time(traits.write_seconds, traits.write_nanoseconds);
    const bool is_read_only = (traits.mode & 0222) == 0;
    info.FileAttributes = is_read_only ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
}

/// Gives the complete file its traits and its name.
int output_file::state::give_name(bool replaces, bool syncs)
{
    const HANDLE system = system_handle(handle);
    // A file that will be deleted can be neither renamed nor read-only.
    set_deleted_at_end(system, false);
    if (traits.FileAttributes != 0)
        SetFileInformationByHandle(system, FileBasicInfo, &traits, sizeof traits);
    if (_close(std::exchange(handle, -1)) != 0) return errno;
    const DWORD replaced = replaces ? GetFileAttributesW(name.c_str()) : INVALID_FILE_ATTRIBUTES;
    const bool was_read_only =
        replaced != INVALID_FILE_ATTRIBUTES && (replaced & FILE_ATTRIBUTE_READONLY) != 0;
    if (was_read_only) SetFileAttributesW(name.c_str(), FILE_ATTRIBUTE_NORMAL);
    const DWORD flags =
        (replaces ? MOVEFILE_REPLACE_EXISTING : 0U) | (syncs ? MOVEFILE_WRITE_THROUGH : 0U);
    if (MoveFileExW(temporary_name.c_str(), name.c_str(), flags) == 0) {
        const int error = last_error();
        if (was_read_only) SetFileAttributesW(name.c_str(), replaced);
        return error;
    }
    temporary_name.clear();
    return 0;
}

int output_file::finish(bool replaces, bool syncs)
{
    state& file = *state_;
    if (file.is_stdout) {
        if (!file.is_seekable) return 0;
        // The next process to write to it continues at the end.
        const auto end = static_cast<int64_t>(file.start + file.end);
        return _lseeki64(file.handle, end, SEEK_SET) >= 0 ? 0 : errno;
    }
    if (syncs && _commit(file.handle) != 0) return errno;
    return file.give_name(replaces, syncs);
}

int create_directory_like(const path& name, const path& /*model*/) // access is inherited
{
    if (CreateDirectoryW(system_name(name).c_str(), nullptr) != 0) return 0;
    const int error = last_error();
    return error == EEXIST ? 0 : error;
}

int remove_file(const path& name)
{
    const std::wstring file = system_name(name);
    if (DeleteFileW(file.c_str()) != 0) return 0;
    const int error = last_error();
    // A read-only file can be removed elsewhere, where the directory decides.
    const DWORD attributes = GetFileAttributesW(file.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_READONLY) == 0)
        return error;
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (DeleteFileW(file.c_str()) != 0) return 0;
    SetFileAttributesW(file.c_str(), attributes);
    return error;
}

path comparable_name(const path& name)
{
    std::wstring upper = name.native();
    const auto size = static_cast<int>(upper.size());
    LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, name.c_str(), size, upper.data(), size);
    return upper;
}

void sync_directory_of(const path& /*name*/) {} // files are moved with write-through

path to_path(const std::string& word)
{
    return path(std::u8string(word.begin(), word.end()));
}

std::string to_text(const path& name)
{
    return to_utf8(name.native().data(), name.native().size());
}

} // namespace tool
