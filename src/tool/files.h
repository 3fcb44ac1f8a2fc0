// tool/files.h - files; implemented per system
//
// Failures are errno values; 0 is success.  Outputs appear under their names when they are
// complete: until then they have no name, or a temporary one that is removed when the program is
// interrupted.
#pragma once

#include "tool/options.h"

#include <cstddef>
#include <memory>
#include <string>

namespace tool {

/// Attributes of a file; an output takes over mode, owner, group and times of its source.
struct file_traits {
    uint64_t device = 0; // device and number identify the file
    uint64_t number = 0;
    uint64_t size = 0;
    uint64_t links = 1;
    uint32_t mode = 0; // permissions
    uint32_t owner = 0;
    uint32_t group = 0;
    int64_t read_seconds = 0; // times of the last read and change
    int64_t read_nanoseconds = 0;
    int64_t write_seconds = 0;
    int64_t write_nanoseconds = 0;
    bool is_regular = false;
    bool is_directory = false;
    bool is_link = false; // only from traits_of() with follows_links = false
    bool has_acl = false; // of input_file: an access control list, besides the permissions

    bool is_same_file(const file_traits& other) const
    {
        return device == other.device && number == other.number;
    }
    /// True for the same file with the same size and time of change.
    bool is_same_version(const file_traits& other) const
    {
        return is_same_file(other) && size == other.size && write_seconds == other.write_seconds &&
               write_nanoseconds == other.write_nanoseconds;
    }
};

/// Reads the traits of a file by name.
int traits_of(const path& name, bool follows_links, file_traits& traits);

/// An open file to read.
class input_file {
  public:
    input_file() = default;
    input_file(const input_file&) = delete;
    input_file& operator=(const input_file&) = delete;
    ~input_file();

    /// Opens a file.
    int open(const path& name);
    /// Uses standard input.
    int open_stdin();

    const file_traits& traits() const { return traits_; }
    /// True for a regular file, which has a size and can be read at any offset.  Offsets in
    /// standard input count from its position at the start of the program.  False for a size of 0:
    /// files in /proc claim it, and have to be read to find their end.
    bool is_seekable() const { return is_seekable_; }
    uint64_t size() const { return size_; }

    /// Reads up to `size` bytes at `offset`; `got` is less only at the end of the file.
    int read_at(uint64_t offset, void* dest, size_t size, size_t& got) const;
    /// Reads the next bytes, up to `size`; `got` is 0 only at the end.
    int read(void* dest, size_t size, size_t& got);

  private:
    friend class output_file;
    intptr_t handle_ = -1;
    bool is_owned_ = false;
    bool is_seekable_ = false;
    uint64_t start_ = 0;
    uint64_t size_ = 0;
    file_traits traits_;
};

/// A file that is being written.
class output_file {
  public:
    output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;
    /// Removes the file unless finish() succeeded.
    ~output_file();

    /// Creates a file, in the directory of `name`, that finish() will give this name.  It can be
    /// read back.
    int create(const path& name);
    /// Creates a file without a name, in the directory for temporary files.
    int create_temporary();
    /// Uses standard output.
    int open_stdout();

    /// True if write_at() can go back.  False for pipes, terminals and files open for appending.
    bool is_seekable() const;

    /// Writes all bytes at `offset`.  If the output isn't seekable, offsets must follow each other.
    int write_at(uint64_t offset, const void* src, size_t size);
    /// Reads what was written, for files that were created.
    int read_at(uint64_t offset, void* dest, size_t size, size_t& got) const;

    /// Gives the file the permissions and times of its source, and owner and group if allowed.  No
    /// group gains access: without its group or its access control list, a file gets fewer
    /// permissions.
    void take_traits(const file_traits& traits);
    /// Gives the file its name: replaces an existing one only if `replaces`, and fails with EEXIST
    /// otherwise.  With `syncs`, content and name are on disk when it returns.
    int finish(bool replaces, bool syncs);

  private:
    struct state;
    std::unique_ptr<state> state_;
};

/// Creates a directory with the permissions of another one, so that files don't become accessible
/// to more people.  No error if `name` exists.
int create_directory_like(const path& name, const path& model);
int remove_file(const path& name);
/// Returns what two normalized names of the same file have in common: on Windows, case is ignored.
path comparable_name(const path& name);
/// Flushes a directory, so that a removal or a new name lasts.
void sync_directory_of(const path& name);

/// Converts an operand of the command line, UTF-8 on Windows, to a file name, and back.
path to_path(const std::string& word);
std::string to_text(const path& name);

} // namespace tool
