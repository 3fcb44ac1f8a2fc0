// frontend/progress.h - progress of a long file on a terminal
#pragma once

#include "common/types.h"

#include <chrono>
#include <string>

namespace quarnex {

/// One line on standard error, rewritten in place a few times a second and erased at the end.  It
/// is shown only if standard error is a terminal.
class progress_line {
  public:
    /// Starts the line of the file `name`.
    explicit progress_line(const std::string& name);
    /// Erases the line.
    ~progress_line();
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;

    /// Shows that `done` of `total` bytes were read.
    void advance(u64 done, u64 total);

  private:
    using clock = std::chrono::steady_clock;
    const std::string name_;
    clock::time_point next_;
};

/// Erases the progress line, if any; call it before other output to a terminal.
void hide_progress();

} // namespace quarnex
