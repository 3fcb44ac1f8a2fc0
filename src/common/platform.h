// common/platform.h - all that differs between operating systems, and what is asked of processors
// (their instructions are in bit_instructions.h)
#pragma once

#include "common/types.h"

#include <climits>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace quarnex {

/// What separates the parts of a path, all bytes behind which a part can start, and the bytes of a
/// buffer that holds a path with a zero behind it.
#if defined(_WIN32)
inline constexpr char path_separator = '\\';
inline constexpr std::string_view path_part_marks = "\\/:";
inline constexpr usize path_buffer_bytes = 259;
#else
inline constexpr char path_separator = '/';
inline constexpr std::string_view path_part_marks = "/";
inline constexpr usize path_buffer_bytes = PATH_MAX;
#endif

/// Prepares the process: the program alone says what fails, a write beyond a file-size limit
/// becomes an ordinary write error, and a terminal is ready for lines that are erased.
void prepare_process();

/// Ends the process at once, with the status of one that aborts.  No stream is flushed.
[[noreturn]] void end_abnormally();

/// Number of processors, at least 1.
u32 processor_count();

/// Size of the second-level cache in KiB as the processor's identification tells it; 0 if the
/// processor has no such instruction.
u32 second_level_cache_kib();

enum class file_kind { regular, directory, other };

/// Which file a name stands for: the same for all names of one file, different for all others.
struct file_identity {
    u64 device = 0;
    u64 number = 0; // 0 if the system tells none: nobody knows then which file it is
    bool operator==(const file_identity& other) const
    {
        return number != 0 && std::tie(device, number) == std::tie(other.device, other.number);
    }
    bool operator<(const file_identity& other) const
    {
        return std::tie(device, number) < std::tie(other.device, other.number);
    }
};

struct file_status {
    file_kind kind = file_kind::other;
    file_identity identity;
};

/// Looks up what `name` stands for (links are followed).  Nothing, with errno set, if that fails.
std::optional<file_status> find_status(const char* name);

/// Whether `name` itself is a link to another name.
bool is_link(const char* name);

/// The names of all that a directory holds, in no order and without "." and "..".  None if it can't
/// be read.
std::vector<std::string> list_directory(const char* name);

/// Creates one directory.  Returns false with errno set on failure.
bool make_directory(const char* name);

/// Size of an open file in bytes, or 0 if the system doesn't tell.
u64 file_size(std::FILE* stream);

/// Sets the position of an open file, in bytes from its start.  Returns false on failure.
bool seek_file(std::FILE* stream, u64 offset);

/// How many bytes of addresses the process can have at the most.
u64 address_space();

/// Size of the pages that prefer_large_pages() asks for.
inline constexpr usize large_page_size = usize{2} << 20;

/// Memory for free() that starts where a large page does, if the system has them.  Null if there is
/// none.
void* allocate_for_large_pages(usize size);

/// Asks the system to keep the `size` bytes at `memory` in large pages, as far as those fit in
/// whole.  Does nothing where it has none.
void prefer_large_pages(void* memory, usize size);

/// Reserves `size` bytes of address space.  Null if the system refuses.
void* reserve_memory(usize size);

/// Makes whole pages of a reservation usable, if they aren't yet; new ones are zero.  They take no
/// memory until they are touched.  False if the system has none to promise.
[[nodiscard]] bool commit_memory(void* memory, usize size);

/// Gives up the content of whole committed pages and, as far as the system can, their memory.  They
/// can still be read and written.
void discard_memory(void* memory, usize size);

/// Ends a reservation.
void release_memory(void* memory, usize size);

/// Whether standard error is a terminal, where people look and lines can be erased.
bool error_stream_is_terminal();

/// A running thread.  Unlike std::thread, one that can't be started is not an exception.
class system_thread {
  public:
    /// Runs `body` in a new thread.  On failure the object stands for no thread.
    explicit system_thread(std::function<void()> body);
    /// Joins the thread.
    ~system_thread();
    system_thread(const system_thread&) = delete;
    system_thread& operator=(const system_thread&) = delete;

    bool started() const { return handle_ != nullptr; }

  private:
    struct handle;
    std::unique_ptr<handle> handle_;
};

} // namespace quarnex
