#include "frontend/system.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace quarnex {

namespace {

/// Opens the null device on those of descriptors 0 to 2 that are closed.
void open_standard_streams()
{
    int opened = 0;
    do {
        opened = open("/dev/null", O_RDWR); // takes the lowest descriptor that is free
    } while (opened >= 0 && opened <= STDERR_FILENO);
    if (opened >= 0) close(opened);
}

} // namespace

void prepare_process()
{
    open_standard_streams();
    std::signal(SIGXFSZ, SIG_IGN);
}

void end_abnormally()
{
    std::abort();
}

namespace {

file_kind kind_of(mode_t mode)
{
    if (S_ISREG(mode)) return file_kind::regular;
    return S_ISDIR(mode) ? file_kind::directory : file_kind::other;
}

} // namespace

std::optional<file_status> find_status(const char* name)
{
    struct stat status {};
    if (stat(name, &status) != 0) return {};
    const file_identity identity{static_cast<u64>(status.st_dev), static_cast<u64>(status.st_ino)};
    return file_status{kind_of(status.st_mode), identity};
}

file_identity find_identity(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return {};
    return {static_cast<u64>(status.st_dev), static_cast<u64>(status.st_ino)};
}

bool is_link(const char* name)
{
    struct stat status {};
    return lstat(name, &status) == 0 && S_ISLNK(status.st_mode);
}

std::vector<std::string> list_directory(const char* name)
{
    std::vector<std::string> names;
    DIR* const stream = opendir(name);
    if (stream == nullptr) return names;
    while (const dirent* const entry = readdir(stream)) {
        const std::string_view found = entry->d_name;
        if (found != "." && found != "..") names.emplace_back(found);
    }
    closedir(stream);
    return names;
}

bool make_directory(const char* name)
{
    return mkdir(name, 0777) == 0;
}

bool error_stream_is_terminal()
{
    return isatty(STDERR_FILENO) != 0;
}

} // namespace quarnex
