#include "frontend/system.h"

#include <cerrno>
#include <cstdlib>
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <string_view>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

/// Makes the runtime expand wildcards in the command line before main() sees it.
extern "C" {
int _dowildcard = -1;
}

namespace quarnex {

namespace {

/// Opens the null device on those of descriptors 0 to 2 that are closed.
void open_standard_streams()
{
    int opened = 0;
    do {
        opened = _open("NUL", _O_RDWR | _O_BINARY); // takes the lowest descriptor that is free
    } while (opened >= 0 && opened <= 2);
    if (opened >= 0) _close(opened);
}

} // namespace

void prepare_process()
{
    open_standard_streams();
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const HANDLE terminal = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(terminal, &mode) != 0)
        SetConsoleMode(terminal, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

void end_abnormally()
{
    constexpr int status_of_abort = 3;
    std::_Exit(status_of_abort); // abort() would print a message of its own
}

namespace {

/// An open handle of a file or directory.
class name_handle {
  public:
    /// Requests no access rights, so that files opened exclusively can be queried too.
    explicit name_handle(const char* name)
        : handle_(CreateFileA(name, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr))
    {
    }
    ~name_handle()
    {
        if (is_open()) CloseHandle(handle_);
    }
    name_handle(const name_handle&) = delete;
    name_handle& operator=(const name_handle&) = delete;

    bool is_open() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return handle_; }

  private:
    HANDLE handle_;
};

int errno_of(DWORD error)
{
    switch (error) {
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
        return EACCES;
    case ERROR_NOT_ENOUGH_MEMORY:
        return ENOMEM;
    case ERROR_TOO_MANY_OPEN_FILES:
        return EMFILE;
    default:
        return ENOENT;
    }
}

file_kind kind_of(DWORD attributes)
{
    if (attributes == INVALID_FILE_ATTRIBUTES) return file_kind::other;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? file_kind::directory : file_kind::regular;
}

u64 file_number(const BY_HANDLE_FILE_INFORMATION& about)
{
    return u64{about.nFileIndexHigh} << 32 | about.nFileIndexLow;
}

/// Iterates over the directory entries that match a name or a pattern.
class directory_search {
  public:
    explicit directory_search(const char* pattern) : handle_(FindFirstFileA(pattern, &entry_)) {}
    ~directory_search()
    {
        if (found_any()) FindClose(handle_);
    }
    directory_search(const directory_search&) = delete;
    directory_search& operator=(const directory_search&) = delete;

    bool found_any() const { return handle_ != INVALID_HANDLE_VALUE; }
    bool next() { return FindNextFileA(handle_, &entry_) != 0; }
    const WIN32_FIND_DATAA& entry() const { return entry_; }

  private:
    WIN32_FIND_DATAA entry_{};
    HANDLE handle_; // declared last: its initializer fills entry_
};

} // namespace

std::optional<file_status> find_status(const char* name)
{
    const name_handle found(name);
    if (!found.is_open()) {
        errno = errno_of(GetLastError());
        return {};
    }
    if (GetFileType(found.get()) != FILE_TYPE_DISK) return file_status{};
    BY_HANDLE_FILE_INFORMATION about{};
    if (GetFileInformationByHandle(found.get(), &about) == 0)
        return file_status{kind_of(GetFileAttributesA(name)), {}};
    return file_status{kind_of(about.dwFileAttributes),
                       {about.dwVolumeSerialNumber, file_number(about)}};
}

file_identity find_identity(int descriptor)
{
    BY_HANDLE_FILE_INFORMATION about{};
    auto* const file = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    if (GetFileInformationByHandle(file, &about) == 0) return {};
    return {about.dwVolumeSerialNumber, file_number(about)};
}

bool is_link(const char* name)
{
    const directory_search found(name);
    const WIN32_FIND_DATAA& entry = found.entry();
    // Other reparse points are ordinary files and directories with remote or special storage.
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (entry.dwReserved0 == IO_REPARSE_TAG_SYMLINK ||
            entry.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT);
}

std::vector<std::string> list_directory(const char* name)
{
    std::vector<std::string> names;
    directory_search search((std::string(name) + "\\*").c_str());
    if (!search.found_any()) return names;
    do {
        const std::string_view found = search.entry().cFileName;
        if (found != "." && found != "..") names.emplace_back(found);
    } while (search.next());
    return names;
}

namespace {

/// Returns whether `name` is a directory or a server ("\\server").
bool is_directory_or_server(const char* name)
{
    constexpr std::string_view server_prefix = "\\\\";
    const std::string_view path(name);
    if (path.starts_with(server_prefix) && path.find('\\', server_prefix.size()) == path.npos)
        return true;
    return kind_of(GetFileAttributesA(name)) == file_kind::directory;
}

} // namespace

bool make_directory(const char* name)
{
    if (_mkdir(name) == 0) return true;
    // For existing servers, shares and drive roots, _mkdir() sets an errno other than EEXIST.
    if (is_directory_or_server(name)) errno = EEXIST;
    return false;
}

bool error_stream_is_terminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0 &&
           (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

} // namespace quarnex
