// common/pending_file.h - a file that gets its name when it is complete
#pragma once

#include "common/owned_array.h"
#include "common/platform/file.h"

namespace quarnex {

/// Written under a temporary name in the directory of its final name; commit() renames it
/// atomically, so the final name always refers to the old file or to the complete new one.  A
/// change of the current directory has no effect on it.
class pending_file {
  public:
    explicit pending_file(const allocator& source) : source_(source) {}
    pending_file(const pending_file&) = delete;
    pending_file& operator=(const pending_file&) = delete;
    /// Removes the file unless it was committed.
    ~pending_file();

    /// Creates the file.  Returns 0 or errno: EEXIST if `name` is a directory, a device or a link
    /// to one.  Called once.
    [[nodiscard]] int create(const char* name);
    /// Flushes the content to the device, closes the file and renames it.  Returns 0 or errno; the
    /// file is removed on failure.
    [[nodiscard]] int commit();
    /// Closes and removes the file, unless it was committed.
    void discard();

    /// The open file.
    system_file file;

  private:
    // Independent of the final name, which may already be as long as the file system allows.  The
    // hexadecimal digits are counted up until the name is free.
    static constexpr char name_pattern[] = ".qrx-0000.tmp";

    int open_directory(usize bytes);
    int create_temporary();

    const allocator& source_;
    system_directory directory_;
    owned_array<char> name_; // of the file, after that of its directory
    usize directory_bytes_ = 0;
    char temporary_[sizeof name_pattern] = {}; // empty if there is no file to remove
};

} // namespace quarnex
