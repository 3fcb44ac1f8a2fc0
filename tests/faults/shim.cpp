// faults/shim.cpp - a preloaded library that makes one system or library call of a program fail
//
// FAULT="CALL FILE FIRST TIMES ACTION [ARGUMENT...]" describes the fault:
//
//   CALL      alloc, read, write, close, thread, or any (each of these);
//             late-alloc: an allocation after the first file was opened for reading
//   FILE      rN or wN: the Nth file that the program opens by a relative name for reading or
//             for writing; * for all of them.  A nameless file (O_TMPFILE) counts, too.
//   FIRST     number of the first such call that fails, from 1
//   TIMES     how many calls fail; 0: all from the first one on
//   ACTION    error N          the call fails with errno N
//             short            the call transfers half of its bytes
//             short-error N    the first call transfers half of its bytes, the others fail
//             kill             the process gets SIGKILL before the call
//             truncate F SIZE, unlink F, rename F TO     done before the call, which then proceeds
//
// FAULT_REPORT names a file of at least 16 bytes that receives two numbers of 64 bits: how often
// the fault was injected, and how many calls were seen.  FAULT_PROCESSORS is the number of
// processors that the program sees; without FAULT, the shim changes nothing else.  A client can
// exclude its own calls by fault_suspend().
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

// The allocator of glibc under its other names: looking up symbols allocates memory itself.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

enum class call { alloc, read, write, close, thread, any, late_alloc };
enum class action { none, error, short_transfer, short_error, kill, truncate, unlink, rename };

constexpr const char* call_names[] = {"alloc",  "read", "write",     "close",
                                      "thread", "any",  "late-alloc"};
constexpr const char* action_names[] = {"none", "error",    "short",  "short-error",
                                        "kill", "truncate", "unlink", "rename"};

/// A file that the program has opened, such as r2.
struct file_label {
    char mode; // 0: not one of them
    int number;
};
constexpr int max_descriptors = 1024;

struct fault {
    call which = call::any;
    file_label file{};
    bool all_files = true;
    uint64_t first = 1;
    uint64_t times = 1;
    action what = action::none;
    char words[3][64]{}; // of the action
};

struct report {
    std::atomic<uint64_t> injected{0};
    std::atomic<uint64_t> seen{0};
};

fault wanted;
report own_report;
report* counts = &own_report;
std::atomic<bool> is_active{false};
std::atomic<bool> is_suspended{false};
std::atomic<file_label> labels[max_descriptors];
std::atomic<int> opened_for_reading{0};
std::atomic<int> opened_for_writing{0};
long processors = 0;

[[noreturn]] void refuse(const char* text)
{
    std::fprintf(stderr, "fault shim: %s\n", text);
    _exit(99);
}

template <size_t count>
int position_of(const char* word, const char* const (&names)[count])
{
    for (size_t i = 0; i < count; ++i) {
        if (std::strcmp(word, names[i]) == 0) return static_cast<int>(i);
    }
    refuse(word);
}

void map_report(const char* name)
{
    const int handle = open(name, O_RDWR | O_CLOEXEC);
    void* const memory =
        handle < 0 ? MAP_FAILED
                   : mmap(nullptr, sizeof(report), PROT_READ | PROT_WRITE, MAP_SHARED, handle, 0);
    if (memory == MAP_FAILED) refuse("the report can't be opened");
    close(handle);
    counts = static_cast<report*>(memory);
}

void parse_fault(const char* text)
{
    char which[16];
    char file[16];
    char what[16];
    unsigned long long first = 0;
    unsigned long long times = 0;
    const int found =
        std::sscanf(text, "%15s %15s %llu %llu %15s %63s %63s %63s", which, file, &first, &times,
                    what, wanted.words[0], wanted.words[1], wanted.words[2]);
    if (found < 5) refuse("bad FAULT");
    wanted.which = static_cast<call>(position_of(which, call_names));
    wanted.all_files = file[0] == '*';
    wanted.file = {file[0], std::atoi(file + 1)};
    wanted.first = first;
    wanted.times = times;
    wanted.what = static_cast<action>(position_of(what, action_names));
}

__attribute__((constructor)) void start()
{
    if (const char* count = std::getenv("FAULT_PROCESSORS")) processors = std::atol(count);
    if (const char* name = std::getenv("FAULT_REPORT")) map_report(name);
    if (const char* text = std::getenv("FAULT")) {
        parse_fault(text);
        is_active = true;
    }
}

template <class Function>
Function* next(const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) refuse(name);
    return reinterpret_cast<Function*>(found);
}

file_label label_of(int handle)
{
    return handle >= 0 && handle < max_descriptors ? labels[handle].load() : file_label{};
}

void set_label(int handle, file_label label)
{
    if (handle >= 0 && handle < max_descriptors) labels[handle] = label;
}

bool concerns(call which, file_label label)
{
    if (wanted.which == call::late_alloc) return which == call::alloc && opened_for_reading != 0;
    if (wanted.which != call::any && wanted.which != which) return false;
    if (which == call::alloc || which == call::thread) return true;
    if (label.mode == 0) return false;
    return wanted.all_files ||
           (label.mode == wanted.file.mode && label.number == wanted.file.number);
}

/// Changes files as the action says.
void change_files()
{
    const char* const name = wanted.words[0];
    int result = 0;
    if (wanted.what == action::truncate)
        result = truncate(name, std::atol(wanted.words[1]));
    else if (wanted.what == action::unlink)
        result = unlink(name);
    else
        result = std::rename(name, wanted.words[1]);
    if (result != 0) refuse("the files can't be changed");
}

/// Counts a call.  Returns what it has to do, after changing files.
action decide(call which, file_label label = {})
{
    if (!is_active || is_suspended || !concerns(which, label)) return action::none;
    const uint64_t number = ++counts->seen;
    if (wanted.what == action::none || number < wanted.first ||
        (wanted.times != 0 && number >= wanted.first + wanted.times))
        return action::none;
    const bool is_first = counts->injected++ == 0;
    switch (wanted.what) {
    case action::kill:
        kill(getpid(), SIGKILL);
        break;
    case action::truncate:
    case action::unlink:
    case action::rename:
        change_files();
        return action::none;
    case action::short_error:
        return is_first ? action::short_transfer : action::error;
    default:
        break;
    }
    return wanted.what;
}

/// Sets errno as the fault says.
int fail()
{
    errno = std::atoi(wanted.words[0]);
    return -1;
}

/// Reads or writes `size` bytes, if the fault permits, by transfer(size).
template <class Transfer>
ssize_t transfer_some(call which, int handle, size_t size, Transfer transfer)
{
    switch (decide(which, label_of(handle))) {
    case action::error:
        return fail();
    case action::short_transfer:
        return transfer(size > 1 ? size / 2 : size);
    default:
        return transfer(size);
    }
}

void* allocate(void* (*allocate_now)(size_t, size_t), size_t first, size_t second)
{
    if (decide(call::alloc) == action::error) {
        errno = ENOMEM;
        return nullptr;
    }
    return allocate_now(first, second);
}

/// Labels a file that was opened by a relative name.
int label_opened(int handle, const char* name, int flags)
{
    const bool is_nameless = (flags & O_TMPFILE) == O_TMPFILE;
    if (handle < 0) return handle;
    if (name[0] == '/' || ((flags & O_DIRECTORY) != 0 && !is_nameless)) {
        set_label(handle, {});
        return handle;
    }
    if ((flags & O_ACCMODE) == O_RDONLY)
        set_label(handle, {'r', ++opened_for_reading});
    else
        set_label(handle, {'w', ++opened_for_writing});
    return handle;
}

mode_t mode_of(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t)
                                                                      : 0;
}

} // namespace

/// Switches counting and failing off or on.
EXPORTED void fault_suspend(int suspend)
{
    is_suspended = suspend != 0;
}

EXPORTED void* malloc(size_t size)
{
    return allocate([](size_t bytes, size_t) { return __libc_malloc(bytes); }, size, 0);
}

EXPORTED void* calloc(size_t count, size_t size)
{
    return allocate(__libc_calloc, count, size);
}

EXPORTED void* realloc(void* memory, size_t size)
{
    if (decide(call::alloc) == action::error) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(memory, size);
}

EXPORTED void* aligned_alloc(size_t alignment, size_t size)
{
    return allocate(__libc_memalign, alignment, size);
}

EXPORTED void* memalign(size_t alignment, size_t size)
{
    return allocate(__libc_memalign, alignment, size);
}

EXPORTED int posix_memalign(void** memory, size_t alignment, size_t size)
{
    void* const made = allocate(__libc_memalign, alignment, size);
    if (made == nullptr) return ENOMEM;
    *memory = made;
    return 0;
}

EXPORTED void* mmap(void* address, size_t size, int protection, int flags, int handle,
                    off_t offset) noexcept
{
    static auto* const real = next<decltype(mmap)>("mmap");
    if ((flags & MAP_ANONYMOUS) != 0 && decide(call::alloc) == action::error) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return real(address, size, protection, flags, handle, offset);
}

EXPORTED void* mmap64(void* address, size_t size, int protection, int flags, int handle,
                      off_t offset) noexcept
{
    return mmap(address, size, protection, flags, handle, offset);
}

EXPORTED int open(const char* name, int flags, ...)
{
    static auto* const real = next<int(const char*, int, mode_t)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return label_opened(real(name, flags, mode), name, flags);
}

EXPORTED int open64(const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return open(name, flags, mode);
}

EXPORTED int openat(int directory, const char* name, int flags, ...)
{
    static auto* const real = next<int(int, const char*, int, mode_t)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return label_opened(real(directory, name, flags, mode), name, flags);
}

EXPORTED int openat64(int directory, const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return openat(directory, name, flags, mode);
}

EXPORTED ssize_t read(int handle, void* dest, size_t size)
{
    static auto* const real = next<decltype(read)>("read");
    return transfer_some(call::read, handle, size,
                         [&](size_t part) { return real(handle, dest, part); });
}

EXPORTED ssize_t pread(int handle, void* dest, size_t size, off_t offset)
{
    static auto* const real = next<decltype(pread)>("pread");
    return transfer_some(call::read, handle, size,
                         [&](size_t part) { return real(handle, dest, part, offset); });
}

EXPORTED ssize_t pread64(int handle, void* dest, size_t size, off_t offset)
{
    return pread(handle, dest, size, offset);
}

EXPORTED ssize_t write(int handle, const void* src, size_t size)
{
    static auto* const real = next<decltype(write)>("write");
    return transfer_some(call::write, handle, size,
                         [&](size_t part) { return real(handle, src, part); });
}

EXPORTED ssize_t pwrite(int handle, const void* src, size_t size, off_t offset)
{
    static auto* const real = next<decltype(pwrite)>("pwrite");
    return transfer_some(call::write, handle, size,
                         [&](size_t part) { return real(handle, src, part, offset); });
}

EXPORTED ssize_t pwrite64(int handle, const void* src, size_t size, off_t offset)
{
    return pwrite(handle, src, size, offset);
}

/// A copy of a descriptor is the same file.
EXPORTED int fcntl(int handle, int command, ...)
{
    static auto* const real = next<int(int, int, long)>("fcntl");
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    const int result = real(handle, command, argument);
    if (command == F_DUPFD || command == F_DUPFD_CLOEXEC) set_label(result, label_of(handle));
    return result;
}

EXPORTED int fcntl64(int handle, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return fcntl(handle, command, argument);
}

/// A close() that fails closes the file nevertheless, as on Linux.
EXPORTED int close(int handle)
{
    static auto* const real = next<decltype(close)>("close");
    const action what = decide(call::close, label_of(handle));
    set_label(handle, {});
    const int result = real(handle);
    return what == action::error ? fail() : result;
}

EXPORTED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                            void* (*body)(void*), void* context) noexcept
{
    static auto* const real = next<decltype(pthread_create)>("pthread_create");
    if (decide(call::thread) == action::error) return std::atoi(wanted.words[0]);
    return real(thread, attributes, body, context);
}

EXPORTED long sysconf(int name) noexcept
{
    static auto* const real = next<decltype(sysconf)>("sysconf");
    return processors != 0 && name == _SC_NPROCESSORS_ONLN ? processors : real(name);
}
