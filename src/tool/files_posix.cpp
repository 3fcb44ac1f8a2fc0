#include "tool/files.h"
#include "tool/process.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif
#include <unistd.h>
#include <utility>

namespace tool {
namespace {

/// Largest number of bytes of one system call.
constexpr size_t max_transfer = size_t{1} << 30;

/// Requested capacity of pipes: a large one means fewer context switches.
constexpr int pipe_bytes = 1 << 20;

/// Largest number of temporary names tried: collisions are rare.
constexpr int max_name_attempts = 100;

file_traits traits_from(const struct stat& found)
{
    file_traits traits;
    traits.device = found.st_dev;
    traits.number = found.st_ino;
    traits.size = static_cast<uint64_t>(found.st_size);
    traits.links = found.st_nlink;
    traits.mode = found.st_mode & 07777;
    traits.owner = found.st_uid;
    traits.group = found.st_gid;
    traits.read_seconds = found.st_atim.tv_sec;
    traits.read_nanoseconds = found.st_atim.tv_nsec;
    traits.write_seconds = found.st_mtim.tv_sec;
    traits.write_nanoseconds = found.st_mtim.tv_nsec;
    traits.is_regular = S_ISREG(found.st_mode);
    traits.is_directory = S_ISDIR(found.st_mode);
    traits.is_link = S_ISLNK(found.st_mode);
    return traits;
}

path directory_of(const path& name)
{
    return name.has_parent_path() ? name.parent_path() : path(".");
}

/// Returns a name for a temporary file in the directory of `name`, a different one each time.
std::string temporary_name_beside(const path& name)
{
    static unsigned calls = 0;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::string base = ".qrx-" + std::to_string(getpid()) + "-" +
                             std::to_string(now.tv_nsec) + "-" + std::to_string(calls++);
    return (directory_of(name) / base).string();
}

/// Returns a name of an open file that works even if the file has none in a directory.
std::string name_of_handle(int handle)
{
    return "/proc/self/fd/" + std::to_string(handle);
}

/// Returns the permissions for a file that couldn't get the group of its source: its group and all
/// others get only those that both have for the source.
uint32_t mode_without_group(uint32_t mode)
{
    const uint32_t shared = mode >> 3 & mode & 7;
    return (mode & 0700) | shared << 3 | shared;
}

/// With an access control list, the permissions of the group are those that anyone in the list may
/// have, so the group itself can have fewer.
bool has_access_list(int handle)
{
#ifdef __linux__
    return fgetxattr(handle, "system.posix_acl_access", nullptr, 0) > 0;
#else
    static_cast<void>(handle);
    return false;
#endif
}

/// Gives a file or directory the permissions of its source besides `more`, and owner and group if
/// allowed.
bool take_access(int handle, const file_traits& traits, uint32_t more)
{
    constexpr auto same_owner = static_cast<uid_t>(-1);
    // Only root may change the owner; others may only choose one of their groups.
    const bool has_group = fchown(handle, traits.owner, traits.group) == 0 ||
                           fchown(handle, same_owner, traits.group) == 0;
    // Without setuid, setgid and sticky: a restored program must not gain rights by accident.
    const uint32_t mode = traits.mode & 0777;
    const uint32_t allowed = has_group && !traits.has_acl ? mode : mode_without_group(mode);
    return fchmod(handle, static_cast<mode_t>(allowed | more)) == 0;
}

/// Reads until `size` bytes or the end of the file.
template <class ReadSome>
int read_fully(ReadSome read_some, char* dest, size_t size, size_t& got)
{
    got = 0;
    while (got < size) {
        const ssize_t count = read_some(dest + got, std::min(size - got, max_transfer));
        if (count == 0) return 0;
        if (count > 0)
            got += static_cast<size_t>(count);
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

int read_range(int handle, uint64_t offset, void* dest, size_t size, size_t& got)
{
    const auto read_some = [&](char* to, size_t count) {
        return pread(handle, to, count, static_cast<off_t>(offset + got));
    };
    return read_fully(read_some, static_cast<char*>(dest), size, got);
}

int rename_without_replacing(const char* from, const char* to)
{
#ifdef RENAME_NOREPLACE
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
#endif
    if (link(from, to) == 0) {
        unlink(from);
        return 0;
    }
    if (errno != EPERM && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
    // Without hard links, the check and the renaming can't be one atomic step.
    struct stat existing {};
    if (lstat(to, &existing) == 0) return EEXIST;
    return rename(from, to) == 0 ? 0 : errno;
}

} // namespace

int traits_of(const path& name, bool follows_links, file_traits& traits)
{
    struct stat found {};
    const int flags = follows_links ? 0 : AT_SYMLINK_NOFOLLOW;
    if (fstatat(AT_FDCWD, name.c_str(), &found, flags) != 0) return errno;
    traits = traits_from(found);
    return 0;
}

input_file::~input_file()
{
    if (is_owned_) close(static_cast<int>(handle_));
}

int input_file::open(const path& name)
{
    // Opening a named pipe waits for a writer.
    const int handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (handle < 0) return errno;
    handle_ = handle;
    is_owned_ = true;
    struct stat found {};
    if (fstat(handle, &found) != 0) return errno;
    traits_ = traits_from(found);
    traits_.has_acl = has_access_list(handle);
    size_ = traits_.is_regular ? traits_.size : 0;
    is_seekable_ = size_ != 0;
    return traits_.is_directory ? EISDIR : 0;
}

int input_file::open_stdin()
{
    struct stat found {};
    if (fstat(STDIN_FILENO, &found) != 0) return errno;
    handle_ = STDIN_FILENO;
    traits_ = traits_from(found);
    const off_t position = lseek(STDIN_FILENO, 0, SEEK_CUR);
    if (traits_.is_regular && position >= 0) {
        start_ = static_cast<uint64_t>(position);
        size_ = traits_.size - std::min(start_, traits_.size);
        is_seekable_ = size_ != 0;
    } else {
#ifdef F_SETPIPE_SZ
        fcntl(STDIN_FILENO, F_SETPIPE_SZ, pipe_bytes); // only a speed-up
#endif
    }
    return traits_.is_directory ? EISDIR : 0;
}

int input_file::read_at(uint64_t offset, void* dest, size_t size, size_t& got) const
{
    return read_range(static_cast<int>(handle_), start_ + offset, dest, size, got);
}

int input_file::read(void* dest, size_t size, size_t& got)
{
    const auto read_some = [&](char* to, size_t count) {
        return ::read(static_cast<int>(handle_), to, count);
    };
    return read_fully(read_some, static_cast<char*>(dest), size, got);
}

struct output_file::state {
    enum class naming {
        nameless,  // the file has no name yet
        temporary, // it has a temporary one
        final      // standard output, or it has its name
    };

    int handle = -1;
    naming kind = naming::final;
    std::string name;
    std::string temporary_name;
    bool is_stdout = false;
    bool is_seekable = true;
    bool has_mode = false;
    uint64_t start = 0;    // offset 0 of standard output
    uint64_t position = 0; // of standard output that isn't seekable
    uint64_t end = 0;

    int write(uint64_t offset, const char* src, size_t size) const;
    int create_named();
    int give_name(bool replaces);
    int name_nameless(bool replaces);
    void discard();
};

output_file::output_file() : state_(std::make_unique<state>()) {}

output_file::~output_file()
{
    state_->discard();
}

void output_file::state::discard()
{
    if (kind == naming::temporary) unlink(temporary_name.c_str());
    if (!temporary_name.empty()) remove_if_interrupted({});
    if (handle >= 0 && !is_stdout) close(handle);
    handle = -1;
    kind = naming::final;
}

/// Creates a file with a temporary name in the directory of `name`.
int output_file::state::create_named()
{
    for (int attempt = 0; attempt < max_name_attempts; ++attempt) {
        temporary_name = temporary_name_beside(name);
        remove_if_interrupted(temporary_name); // before the file exists: none is left over
        handle = open(temporary_name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (handle >= 0) {
            kind = naming::temporary;
            return 0;
        }
        if (errno != EEXIST) return errno;
    }
    return EEXIST;
}

int output_file::create(const path& name)
{
    state_->name = name.string();
#ifdef O_TMPFILE
    state_->handle = open(directory_of(name).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (state_->handle < 0) {
        if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return errno;
    } else if (access(name_of_handle(state_->handle).c_str(), F_OK) == 0) {
        state_->kind = state::naming::nameless;
        return 0;
    } else {
        close(state_->handle);
    }
#endif
    // The file system can't create files without a name, or there is no /proc to name them later.
    return state_->create_named();
}

int output_file::create_temporary()
{
    const char* directory = std::getenv("TMPDIR");
    if (directory == nullptr || *directory == 0) directory = "/tmp";
    const int error = create(path(directory) / "qrx");
    if (error != 0) return error;
    if (state_->kind == state::naming::temporary) {
        unlink(state_->temporary_name.c_str());
        remove_if_interrupted({});
        state_->kind = state::naming::nameless;
    }
    return 0;
}

int output_file::open_stdout()
{
    struct stat found {};
    if (fstat(STDOUT_FILENO, &found) != 0) return errno;
    state_->handle = STDOUT_FILENO;
    state_->is_stdout = true;
    const off_t position = lseek(STDOUT_FILENO, 0, SEEK_CUR);
    const bool appends = (fcntl(STDOUT_FILENO, F_GETFL) & O_APPEND) != 0;
    state_->is_seekable = S_ISREG(found.st_mode) && position >= 0 && !appends;
    if (state_->is_seekable) state_->start = static_cast<uint64_t>(position);
#ifdef F_SETPIPE_SZ
    if (S_ISFIFO(found.st_mode)) fcntl(STDOUT_FILENO, F_SETPIPE_SZ, pipe_bytes);
#endif
    return 0;
}

bool output_file::is_seekable() const
{
    return state_->is_seekable;
}

int output_file::state::write(uint64_t offset, const char* src, size_t size) const
{
    while (size != 0) {
        const size_t part = std::min(size, max_transfer);
        const ssize_t count = is_seekable
                                  ? pwrite(handle, src, part, static_cast<off_t>(start + offset))
                                  : ::write(handle, src, part);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return EIO; // or the loop might not end
        src += count;
        offset += static_cast<uint64_t>(count);
        size -= static_cast<size_t>(count);
    }
    return 0;
}

int output_file::write_at(uint64_t offset, const void* src, size_t size)
{
    if (!state_->is_seekable && offset != state_->position) return ESPIPE;
    const int error = state_->write(offset, static_cast<const char*>(src), size);
    if (error != 0) return error;
    state_->position = offset + size;
    state_->end = std::max(state_->end, state_->position);
    return 0;
}

int output_file::read_at(uint64_t offset, void* dest, size_t size, size_t& got) const
{
    return read_range(state_->handle, offset, dest, size, got);
}

void output_file::take_traits(const file_traits& traits)
{
    if (state_->is_stdout) return;
    const int handle = state_->handle;
    state_->has_mode = take_access(handle, traits, 0);
    const timespec times[2] = {
        {static_cast<time_t>(traits.read_seconds), static_cast<long>(traits.read_nanoseconds)},
        {static_cast<time_t>(traits.write_seconds), static_cast<long>(traits.write_nanoseconds)}};
    futimens(handle, times);
}

int create_directory_like(const path& name, const path& model)
{
    input_file directory; // reports that it is one
    if (const int error = directory.open(model); error != EISDIR) return error;
    if (mkdir(name.c_str(), 0700) != 0) return errno == EEXIST ? 0 : errno;
    const int made = ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (made < 0) return errno;
    take_access(made, directory.traits(), 0700); // the owner must be able to write to it
    close(made);
    return 0;
}

/// Closes a file; returns 0 or the error.  Some file systems write data only then.
int close_file(int handle)
{
    return close(handle) == 0 || errno == EINTR ? 0 : errno;
}

/// Returns the error that closing the file would report, or nothing without a free descriptor.  The
/// file itself stays open, since a nameless file gets its name through its descriptor.
std::optional<int> close_error(int handle)
{
    const int copy = fcntl(handle, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return std::nullopt;
    return close_file(copy);
}

/// Gives a nameless file its name, through a temporary one if it replaces a file.
int output_file::state::name_nameless(bool replaces)
{
    const std::string link_name = name_of_handle(handle);
    const auto link_to = [&](const std::string& to) {
        const int made =
            linkat(AT_FDCWD, link_name.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW);
        return made == 0 ? 0 : errno;
    };
    const int error = link_to(name);
    if (error != EEXIST || !replaces) return error;
    for (int attempt = 0; attempt < max_name_attempts; ++attempt) {
        temporary_name = temporary_name_beside(name);
        remove_if_interrupted(temporary_name);
        const int linked = link_to(temporary_name);
        if (linked == EEXIST) continue;
        if (linked != 0) return linked;
        kind = naming::temporary;
        return rename(temporary_name.c_str(), name.c_str()) == 0 ? 0 : errno;
    }
    return EEXIST;
}

int output_file::state::give_name(bool replaces)
{
    if (kind == naming::nameless) return name_nameless(replaces);
    if (!replaces) return rename_without_replacing(temporary_name.c_str(), name.c_str());
    return rename(temporary_name.c_str(), name.c_str()) == 0 ? 0 : errno;
}

int output_file::finish(bool replaces, bool syncs)
{
    state& file = *state_;
    if (file.is_stdout) {
        if (!file.is_seekable) return 0;
        // The next process to write to it continues at the end.
        const auto end = static_cast<off_t>(file.start + file.end);
        return lseek(file.handle, end, SEEK_SET) >= 0 ? 0 : errno;
    }
    if (!file.has_mode) {
        const mode_t mask = umask(0);
        umask(mask);
        // Some file systems don't support modes.
        file.has_mode = fchmod(file.handle, 0666 & ~mask) == 0;
    }
    if (syncs && fsync(file.handle) != 0 && errno != EINVAL) return errno;
    const std::optional<int> early = close_error(file.handle);
    int error = early.value_or(0);
    if (error == 0) error = file.give_name(replaces);
    if (error != 0) return error;
    remove_if_interrupted({});
    file.kind = state::naming::final;
    const int closed = close_file(std::exchange(file.handle, -1));
    if (!early && closed != 0) return closed; // otherwise nothing is left to write
    if (syncs) sync_directory_of(file.name);
    return 0;
}

int remove_file(const path& name)
{
    return unlink(name.c_str()) == 0 ? 0 : errno;
}

path comparable_name(const path& name)
{
    return name;
}

void sync_directory_of(const path& name)
{
    const int handle = open(directory_of(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0) return;
    fsync(handle);
    close(handle);
}

path to_path(const std::string& word)
{
    return path(word);
}
std::string to_text(const path& name)
{
    return name.string();
}

} // namespace tool
