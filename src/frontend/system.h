// frontend/system.h - what the program asks of the operating system: process, paths, directories
// and the terminal
#pragma once

#include "common/types.h"

#include <climits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace quarnex {

/// Path separator, all characters that end a component, and the path buffer size including the NUL.
#if defined(_WIN32)
inline constexpr char path_separator = '\\';
inline constexpr std::string_view path_part_marks = "\\/:";
inline constexpr usize path_buffer_bytes = 259;
#else
inline constexpr char path_separator = '/';
inline constexpr std::string_view path_part_marks = "/";
inline constexpr usize path_buffer_bytes = PATH_MAX;
#endif

/// Prepares the process: closed standard streams are opened on the null device, so that no file of
/// the user's takes their place; the program alone reports failures; a write past a file-size limit
/// is an ordinary write error; and a terminal is ready for lines that are erased.
void prepare_process();

/// Ends the process at once, with the status of one that aborts.  No stream is flushed.
[[noreturn]] void end_abnormally();

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

/// Whether standard error is a terminal, where people look and lines can be erased.
bool error_stream_is_terminal();

} // namespace quarnex
