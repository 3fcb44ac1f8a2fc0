// fuzz/memory_file.h - files in memory, for targets that run drivers
#pragma once

#include "fuzz_target.h"

#include <span>
#include <string>
#include <sys/mman.h>

namespace quarnex::fuzz {

/// An anonymous file in memory.
class memory_file {
  public:
    memory_file() : fd_(memfd_create("fuzz", MFD_CLOEXEC))
    {
        require(fd_ >= 0, "memfd_create() succeeds");
    }
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;
    ~memory_file() { close(fd_); }

    void fill(std::span<const u8> content)
    {
        require(ftruncate(fd_, 0) == 0 && pwrite(fd_, content.data(), content.size(), 0) ==
                                              static_cast<ssize_t>(content.size()),
                "a memory file can be filled");
    }
    bytes content() const
    {
        bytes all(static_cast<usize>(size()));
        require(pread(fd_, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()),
                "a memory file can be read");
        return all;
    }
    u64 size() const { return static_cast<u64>(lseek(fd_, 0, SEEK_END)); }
    std::string name() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    const int fd_;
};

} // namespace quarnex::fuzz
