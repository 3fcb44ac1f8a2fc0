#include "frontend/system.h"

#include <cerrno>
#include <cstdlib>
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <string_view>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

/// Tells the runtime to expand wildcards in the command line before main() sees it.
extern "C" {
int _dowildcard = -1;
}

namespace quarnex {

namespace {

/// Opens those of the descriptors 0 to 2 that are closed.
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
    std::_Exit(status_of_abort); // abort() would put words of its own behind the program's
}

namespace {

/// The open handle of a name, closed at the end.
class name_handle {
  public:
    /// Asks for no access, so that files that others have open can be looked up too.
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

/// What the system finds in a directory for a name or a pattern, one after the other.
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
    bool go_on() { return FindNextFileA(handle_, &entry_) != 0; }
    const WIN32_FIND_DATAA& entry() const { return entry_; }

  private:
    WIN32_FIND_DATAA entry_{};
    HANDLE handle_; // last: finding it fills the entry
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
    const u64 number = u64{about.nFileIndexHigh} << 32 | about.nFileIndexLow;
    return file_status{kind_of(about.dwFileAttributes), {about.dwVolumeSerialNumber, number}};
}

bool is_link(const char* name)
{
    const directory_search found(name);
    const WIN32_FIND_DATAA& entry = found.entry();
    // Other reparse points are ordinary files and directories that are kept in another place.
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
    } while (search.go_on());
    return names;
}

namespace {

/// Whether there is something in which directories can be made.
bool holds_directories(const char* name)
{
    constexpr std::string_view server_mark = "\\\\";
    const std::string_view path(name);
    if (path.starts_with(server_mark) && path.find('\\', server_mark.size()) == path.npos)
        return true;
    return kind_of(GetFileAttributesA(name)) == file_kind::directory;
}

} // namespace

bool make_directory(const char* name)
{
    if (_mkdir(name) == 0) return true;
    // Servers, shares and the roots of drives, which nobody can make, are told in other ways.
    if (holds_directories(name)) errno = EEXIST;
    return false;
}

bool error_stream_is_terminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0 &&
           (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

} // namespace quarnex
