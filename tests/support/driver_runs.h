// support/driver_runs.h - the drivers in this process, with their threads
#pragma once

#include "pipeline/drivers.h"
#include "pipeline/output_file.h"
#include "support/error_recorder.h"
#include "support/pipeline_jobs.h"
#include "support/process_entries.h"
#include "support/temp_dir.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// What became of a run.
struct driver_run {
    i32 result = 0;
    i32 abort_count = 0;
};

/// Calls `driver` while the threads of a pipeline run, and lets all blocks finish.
template <class Driver>
driver_run run_driver(u32 workers, direction mode, Driver driver)
{
    driver_run run;
    pipeline_state state(workers);
    {
        const pipeline_threads threads(state, mode);
        if (!threads.ready()) std::abort();
        run.result = driver(state);
    }
    run.abort_count = state.abort_count;
    return run;
}

/// Compresses to `destination` + ".qrx".
inline driver_run compress(u32 workers, const file_parameters& parameters,
                           const std::string& source, const std::string& destination)
{
    return run_driver(workers, direction::compress, [&](pipeline_state& state) {
        return compress_file(state, parameters, source, destination);
    });
}

inline driver_run decompress(u32 workers, const std::string& source, const std::string& destination)
{
    return run_driver(workers, direction::decompress, [&](pipeline_state& state) {
        return decompress_file(state, source, destination);
    });
}

/// A driver with a number of workers, and the failures that would end the process.
class driver_fixture : public testing::TestWithParam<u32> {
  protected:
    bool has_workers() const { return GetParam() != 0; }

    /// Expects `failure` alone, seen by the driver itself or, with workers, by another thread.
    void expect_failure(const driver_run& run, const error_recorder::failure& failure)
    {
        EXPECT_EQ(recorder.take(), std::vector{failure});
        EXPECT_EQ(run.abort_count, has_workers() ? 1 : 0);
        if (has_workers()) return;
        EXPECT_EQ(run.result, -failure.first);
    }

    /// Expects `failure` alone, seen by the driver itself in any case.
    void expect_driver_failure(const driver_run& run, const error_recorder::failure& failure)
    {
        EXPECT_EQ(recorder.take(), std::vector{failure});
        EXPECT_EQ(run.abort_count, 0);
        EXPECT_EQ(run.result, -failure.first);
    }

    void expect_success(const driver_run& run)
    {
        EXPECT_EQ(recorder.take(), std::vector<error_recorder::failure>());
        EXPECT_EQ(run.abort_count, 0);
        EXPECT_EQ(run.result, driver_done);
    }

    const time_guard guard;
    error_recorder recorder;
    temp_dir dir;
};

inline std::string workers_name(const testing::TestParamInfo<u32>& info)
{
    return std::to_string(info.param) + "_workers";
}

} // namespace quarnex::test
