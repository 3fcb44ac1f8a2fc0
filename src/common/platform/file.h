// common/platform/file.h - an open file; functions return an errno value, 0 for success
#pragma once

#include "common/types.h"

#include <array>
#include <utility>

namespace quarnex {

/// Result of a read.  Fewer bytes than requested without an error mean the end of the file.
struct read_result {
    usize count; // bytes read
    int error;
};

/// An open file, or none.  Unbuffered: each call is a system call.
class system_file {
  public:
    system_file() = default;
    system_file(system_file&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, no_file))
    {
    }
    system_file& operator=(system_file&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    /// Closes the file, if one is open.
    ~system_file() { static_cast<void>(close()); }

    bool is_open() const { return descriptor_ != no_file; }
    /// The file descriptor.
    int descriptor() const { return descriptor_; }

    /// Opens a file for reading.  None may be open.
    [[nodiscard]] int open(const char* name);
    /// Creates a file for writing, or truncates an existing one.  None may be open.
    [[nodiscard]] int create(const char* name);

    /// Creates a file for writing; fails with EEXIST if it exists.  None may be open.
    [[nodiscard]] int create_new(const char* name);

    /// Reads `size` bytes, or fewer at the end of the file.
    [[nodiscard]] read_result read(u8* dest, usize size);
    /// Reads `size` bytes at `offset`, or fewer at the end of the file.  Moves the position on some
    /// systems.
    [[nodiscard]] read_result read_at(u64 offset, u8* dest, usize size);
    /// Writes `size` bytes.
    [[nodiscard]] int write(const u8* src, usize size);
    /// Writes `size` bytes at `offset`.  Moves the position on some systems.
    [[nodiscard]] int write_at(u64 offset, const u8* src, usize size);
    /// Sets the position, in bytes from the start.
    [[nodiscard]] int seek(u64 offset);
    /// Size in bytes; 0 if it is unknown.
    u64 size() const;
    /// Writes cached content to the device and waits for that.
    [[nodiscard]] int flush();
    /// Closes the file, if one is open.  Reports delayed write errors.
    [[nodiscard]] int close();

  private:
    friend class system_directory;

    static constexpr int no_file = -1;
    int descriptor_ = no_file;
};

/// A directory in which files are created.  It stays the same one if the process changes its
/// current directory.
class system_directory {
  public:
    system_directory() = default;
    system_directory(const system_directory&) = delete;
    system_directory& operator=(const system_directory&) = delete;
    /// Closes the directory, if one is open.
    ~system_directory() { close(); }

    /// Opens a directory.  None may be open.
    [[nodiscard]] int open(const char* name);
    void close();

    /// Creates a file in the directory for writing; fails with EEXIST if it exists.
    [[nodiscard]] int create_new(const char* name, system_file& file) const;
    /// Renames a file in the directory, atomically replacing an existing one.
    [[nodiscard]] int rename(const char* name, const char* new_name) const;
    /// Removes a file from the directory.
    void remove(const char* name) const;

  private:
#ifdef _WIN32
    static constexpr usize max_path = 260; // of the functions used
    std::array<wchar_t, max_path> path_{}; // ends in a separator
#else
    int descriptor_ = -1;
#endif
};

/// Returns how many files the process may have open.
u32 max_open_files();

/// Tests whether system_directory::rename() may give a file this name: nothing, a regular file, or
/// a link to one of these has it.  Returns 0; EEXIST for anything else, such as a directory, a
/// device or a pipe; or another errno if no file can have the name.
[[nodiscard]] int check_replaceable(const char* name);

} // namespace quarnex
