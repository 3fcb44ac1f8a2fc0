// support/error_recorder.h - failures with a code, recorded instead of ending the process
#pragma once

#include "common/sync.h"
#include "pipeline/errors.h"

#include <string>
#include <utility>
#include <vector>

namespace quarnex::test {

/// While it lives, a fatal failure is noted and report_error() comes back to its caller.  One at a
/// time; failures may come from any thread.
class error_recorder {
  public:
    using failure = std::pair<i32, std::string>;

    error_recorder()
    {
        take();
        fatal_error_handler = note;
    }
    ~error_recorder() { fatal_error_handler = end_process; }
    error_recorder(const error_recorder&) = delete;
    error_recorder& operator=(const error_recorder&) = delete;

    /// What was reported since the last call.
    std::vector<failure> take()
    {
        scoped_lock lock(mutex);
        return std::exchange(failures, {});
    }

  private:
    static void note(i32 code, const char* text)
    {
        scoped_lock lock(mutex);
        failures.emplace_back(code, text);
    }

    static inline guard_mutex mutex;
    static inline std::vector<failure> failures GUARDED_BY(mutex);
};

inline const error_recorder::failure no_memory_failure{error_no_memory, "malloc error"};
inline const error_recorder::failure corrupted_failure{error_corrupted, "file is corrupted"};
inline const error_recorder::failure disk_full_failure{
    error_write, "write error. errno=28 'No space left on device'"};

} // namespace quarnex::test
