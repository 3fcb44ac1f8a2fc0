#include "common/platform.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarnex {

void prepare_process()
{
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

u64 file_size(std::FILE* stream)
{
    struct stat status {};
    return fstat(fileno(stream), &status) == 0 ? static_cast<u64>(status.st_size) : 0;
}

bool seek_file(std::FILE* stream, u64 offset)
{
    static_assert(sizeof(off_t) == 8);
    if (offset > INT64_MAX) {
        errno = EINVAL;
        return false;
    }
    return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

u64 address_space()
{
    return UINTPTR_MAX;
}

void* allocate_for_large_pages(usize size)
{
    if (size > SIZE_MAX - large_page_size) return nullptr;
    const usize rounded = (size + large_page_size - 1) / large_page_size * large_page_size;
    return std::aligned_alloc(large_page_size, rounded);
}

void prefer_large_pages(void* memory, usize size)
{
#if defined(MADV_HUGEPAGE)
    const auto begin = reinterpret_cast<usize>(memory);
    const usize skipped = (0 - begin) % large_page_size;
    if (size < skipped + large_page_size) return;
    const usize length = (size - skipped) / large_page_size * large_page_size;
    madvise(static_cast<u8*>(memory) + skipped, length, MADV_HUGEPAGE);
#else
    static_cast<void>(memory);
    static_cast<void>(size);
#endif
}

void* reserve_memory(usize size)
{
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return memory != MAP_FAILED ? memory : nullptr;
}

bool commit_memory(void* /*memory*/, usize /*size*/)
{
    return true; // pages come when they are touched
}

void discard_memory(void* memory, usize size)
{
    madvise(memory, size, MADV_DONTNEED);
}

void release_memory(void* memory, usize size)
{
    munmap(memory, size);
}

bool error_stream_is_terminal()
{
    return isatty(STDERR_FILENO) != 0;
}

} // namespace quarnex
