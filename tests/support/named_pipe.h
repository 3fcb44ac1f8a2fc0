// support/named_pipe.h - a destination that takes bytes only when the test wants it
#pragma once

#include "support/shapes.h"

#include <atomic>
#include <functional>
#include <thread>

namespace quarnex::test {

/// A named pipe in the place of a file that the program writes.  A program that writes more than a
/// pipe holds (64 KiB) waits for the reader, so the test can act at a known point of its work.
class named_pipe {
  public:
    /// Creates the pipe and reads it in a thread: `pause_after` bytes, then `at_pause` is called,
    /// then all the rest.
    named_pipe(const std::string& name, usize pause_after, std::function<void()> at_pause);
    ~named_pipe();
    named_pipe(const named_pipe&) = delete;
    named_pipe& operator=(const named_pipe&) = delete;

    /// All that was written.  Call it when the program has ended.
    const bytes& content();

  private:
    bool read_some(usize most);
    void read_until(usize size);

    int fd_;
    bytes content_;
    std::atomic<bool> writer_ended_ = false;
    std::thread reader_; // last: it uses all the others
};

} // namespace quarnex::test
