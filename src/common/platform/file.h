// common/platform/file.h - an open file; failures are error numbers (errno), 0 for none
#pragma once

#include "common/types.h"

#include <utility>

namespace quarnex {

/// What a read has come to: fewer bytes than asked for without an error mean the end of the file.
struct read_result {
    usize count; // bytes read
    int error;
};

/// One open file, or none.  Unbuffered: each call reaches the system.
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
    /// Closes the file, if there is one.
    ~system_file() { static_cast<void>(close()); }

    bool is_open() const { return descriptor_ != no_file; }
    /// The system's number for the file.
    int descriptor() const { return descriptor_; }

    /// Opens a file for reading.  There must be none so far.
    [[nodiscard]] int open(const char* name);
    /// Creates a file for writing, or empties the one that is there.  There must be none so far.
    [[nodiscard]] int create(const char* name);

    /// Reads `size` bytes, or up to the end of the file.
    [[nodiscard]] read_result read(u8* to, usize size);
    /// Writes `size` bytes.
    [[nodiscard]] int write(const u8* from, usize size);
    /// Sets the position, in bytes from the start.
    [[nodiscard]] int seek(u64 offset);
    /// Size in bytes, or 0 if the system doesn't tell.
    u64 size() const;
    /// Closes the file, if there is one.  A write can fail as late as this.
    [[nodiscard]] int close();

  private:
    static constexpr int no_file = -1;
    int descriptor_ = no_file;
};

} // namespace quarnex
