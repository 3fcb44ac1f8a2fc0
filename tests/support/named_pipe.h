// support/named_pipe.h - a destination whose reader the test controls
#pragma once

#include "support/shapes.h"

#include <atomic>
#include <functional>
#include <thread>

namespace quarnex::test {

/// A named pipe under the name of a file that the program writes.  A program that writes more than
/// the pipe's capacity (64 KiB) blocks until it is read, so the test can act at a known point.
class named_pipe {
  public:
    /// Creates the pipe and reads it on a thread: reads `pause_after` bytes, calls `at_pause`, then
    /// reads the rest.
    named_pipe(const std::string& name, usize pause_after, std::function<void()> at_pause);
    ~named_pipe();
    named_pipe(const named_pipe&) = delete;
    named_pipe& operator=(const named_pipe&) = delete;

    /// Returns everything written.  Call it after the program has ended.
    const bytes& content();

  private:
    bool read_some(usize max_bytes);
    void read_until(usize size);

    int fd_;
    bytes content_;
    std::atomic<bool> writer_ended_ = false;
    std::thread reader_; // last: uses all other members
};

} // namespace quarnex::test
