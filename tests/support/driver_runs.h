// support/driver_runs.h - runs the drivers in this process, with their threads
#pragma once

#include "pipeline/drivers.h"
#include "support/event_recorder.h"
#include "support/pipeline_jobs.h"
#include "support/process_entries.h"
#include "support/temp_dir.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// The outcome of a run.
struct driver_run {
    status result = status::done;
    u32 thread_failures = 0;
    status first_failure = status::done;
};

/// Calls `driver` with an engine whose threads run, and waits for all blocks.
template <class Driver>
driver_run run_driver(u32 workers, event_recorder& recorder, Driver driver,
                      const allocator& source = system_allocator)
{
    driver_run run;
    engine work(source, workers, recorder.watcher());
    {
        const engine_threads threads(work);
        if (!threads.ready()) std::abort();
        run.result = driver(work);
    }
    run.thread_failures = work.thread_failures();
    run.first_failure = work.first_failure();
    return run;
}

/// Compresses with settled parameters, without classifying the file.
inline driver_run compress(u32 workers, event_recorder& recorder, const file_parameters& parameters,
                           const std::string& source, const std::string& destination,
                           const allocator& memory = system_allocator)
{
    return run_driver(
        workers, recorder,
        [&](engine& work) {
            return compress_file(work, {source.c_str(), destination.c_str()}, parameters, false);
        },
        memory);
}

inline driver_run decompress(u32 workers, event_recorder& recorder, const std::string& source,
                             const std::string& destination,
                             const allocator& memory = system_allocator)
{
    return run_driver(
        workers, recorder,
        [&](engine& work) {
            return decompress_file(work, {source.c_str(), destination.c_str()});
        },
        memory);
}

/// Parameterized by number of workers; records the events of the engine.
class driver_fixture : public testing::TestWithParam<u32> {
  protected:
    bool has_workers() const { return GetParam() != 0; }

    /// Expects exactly one event, of `kind`, and returns it.
    recorded_event expect_event(event_kind kind)
    {
        const auto reported = recorder.take();
        EXPECT_EQ(reported.size(), 1U);
        if (reported.size() != 1) return {kind};
        EXPECT_EQ(reported[0].kind, kind) << testing::PrintToString(reported[0]);
        return reported[0];
    }

    /// Expects one event of `kind` and the failure `reason`: of the driver itself or, with workers,
    /// of another thread.
    recorded_event expect_failure(const driver_run& run, event_kind kind, status reason)
    {
        EXPECT_EQ(run.first_failure, reason);
        EXPECT_EQ(run.thread_failures, has_workers() ? 1U : 0U);
        if (!has_workers()) {
            EXPECT_EQ(run.result, reason);
        }
        const recorded_event reported = expect_event(kind);
        EXPECT_EQ(reported.on_worker, has_workers());
        return reported;
    }

    /// Expects one event of `kind` and the failure `reason` of the driver itself.
    recorded_event expect_driver_failure(const driver_run& run, event_kind kind, status reason)
    {
        EXPECT_EQ(run.first_failure, reason);
        EXPECT_EQ(run.thread_failures, 0U);
        EXPECT_EQ(run.result, reason);
        const recorded_event reported = expect_event(kind);
        EXPECT_FALSE(reported.on_worker);
        return reported;
    }

    void expect_success(const driver_run& run)
    {
        EXPECT_TRUE(recorder.take().empty());
        EXPECT_EQ(run.thread_failures, 0U);
        EXPECT_EQ(run.first_failure, status::done);
        EXPECT_EQ(run.result, status::done);
    }

    const time_guard guard{250}; // runs that fail each allocation take minutes in an emulator
    event_recorder recorder;
    temp_dir dir;
};

inline std::string workers_name(const testing::TestParamInfo<u32>& info)
{
    return std::to_string(info.param) + "_workers";
}

} // namespace quarnex::test
