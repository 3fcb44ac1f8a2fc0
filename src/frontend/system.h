// frontend/system.h - operating system services for the program: process, paths, directories and
// the terminal
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
inline constexpr std::string_view path_delimiters = "\\/:";
inline constexpr usize path_buffer_bytes = 259;
#else
inline constexpr char path_separator = '/';
inline constexpr std::string_view path_delimiters = "/";
inline constexpr usize path_buffer_bytes = PATH_MAX;
#endif

/// Prepares the process:
/// - opens closed standard streams on the null device, so that no user file gets their descriptors;
/// - turns off the system's own error dialogs (Windows);
/// - makes a write past a file-size limit an ordinary write error (POSIX);
/// - enables escape sequences on the terminal (Windows).
void prepare_process();

/// Ends the process immediately with the status of abort().  No stream is flushed.
[[noreturn]] void end_abnormally();

enum class file_kind { regular, directory, other };

/// Identifies a file: equal for all names of a file, unequal for different files.  Where the system
/// reports no file number, it equals nothing, not even itself.
struct file_identity {
    u64 device = 0;
    u64 number = 0; // 0 if the system reports none
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

/// Returns kind and identity of the file `name`, following links; nothing, with errno set, on
/// failure.
std::optional<file_status> find_status(const char* name);

/// Returns the identity of an open file; on failure one that equals nothing.
file_identity find_identity(int descriptor);

/// Returns whether `name` itself is a symbolic link (or a mount point on Windows).
bool is_link(const char* name);

/// Returns the names in a directory, unsorted and without "." and ".."; none if it can't be read.
std::vector<std::string> list_directory(const char* name);

/// Creates one directory.  Returns false with errno set on failure.
bool make_directory(const char* name);

/// Returns whether standard error is a terminal on which lines can be erased.
bool error_stream_is_terminal();

} // namespace quarnex
