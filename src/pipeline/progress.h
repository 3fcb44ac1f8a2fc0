// pipeline/progress.h - how far a long file has come, for people who look
#pragma once

#include "common/types.h"

#include <chrono>
#include <string>

namespace quarnex {

/// One line on standard error, rewritten in place a few times a second and gone at the end.  Only
/// when standard error is a terminal: a pipe or a file gets nothing.
class progress_line {
  public:
    /// A line about the file `name`, of `total` bytes.
    progress_line(const std::string& name, u64 total);
    ~progress_line();
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;

    /// Says that `bytes` more of the file are done.
    void advance(u64 bytes);

  private:
    using clock = std::chrono::steady_clock;
    const bool visible_;
    const std::string name_;
    const u64 total_;
    u64 done_ = 0;
    clock::time_point next_;
};

/// Takes the line away, if one stands there, before something else is written on a terminal.
void hide_progress();

} // namespace quarnex
