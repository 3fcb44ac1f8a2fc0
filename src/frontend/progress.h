// frontend/progress.h - how far a long file has come, for people who look
#pragma once

#include "common/types.h"

#include <chrono>
#include <string>

namespace quarnex {

/// One line on standard error, rewritten in place a few times a second and gone at the end.  Only
/// when standard error is a terminal: a pipe or a file gets nothing.
class progress_line {
  public:
    /// Starts a line about the file `name`.
    explicit progress_line(const std::string& name);
    /// Removes it.
    ~progress_line();
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;

    /// Shows that `done` of `total` bytes are done.
    void advance(u64 done, u64 total);

  private:
    using clock = std::chrono::steady_clock;
    const std::string name_;
    clock::time_point next_;
};

/// Removes the line, if one is there, before something else is written on a terminal.
void hide_progress();

} // namespace quarnex
