// support/event_recorder.h - records the events of an engine
#pragma once

#include "common/sync.h"
#include "pipeline/events.h"

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace quarnex::test {

/// A copy of an event that owns its name.
struct recorded_event {
    event_kind kind;
    int cause = 0;
    std::string name{};
    u32 block = 0;
    u64 wanted = 0;
    u64 got = 0;
    direction mode = direction::compress;
    codec_status codec_error = codec_status::done;
    bool on_worker = false;
};

/// Prints an event in test failures.
inline void PrintTo(const recorded_event& reported, std::ostream* out)
{
    *out << "event " << static_cast<int>(reported.kind) << " of '" << reported.name << "', cause "
         << reported.cause << ", wanted " << reported.wanted << ", got " << reported.got;
}

/// An observer that records all events, from any thread.
class event_recorder {
  public:
    event_recorder() = default;
    event_recorder(const event_recorder&) = delete;
    event_recorder& operator=(const event_recorder&) = delete;

    observer watcher() { return {.tell = record, .context = this}; }

    /// Returns the events since the last call.
    std::vector<recorded_event> take()
    {
        scoped_lock lock(mutex_);
        return std::exchange(events_, {});
    }

  private:
    static void record(void* context, const event& happened)
    {
        auto& self = *static_cast<event_recorder*>(context);
        scoped_lock lock(self.mutex_);
        self.events_.push_back({happened.kind, happened.cause, happened.name, happened.block,
                                happened.wanted, happened.got, happened.mode, happened.codec_error,
                                happened.on_worker});
    }

    guard_mutex mutex_;
    std::vector<recorded_event> events_ GUARDED_BY(mutex_);
};

} // namespace quarnex::test
