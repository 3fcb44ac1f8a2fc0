// pipeline/workers_fixture.h - a worker thread and its queues
#pragma once

#include "pipeline/engine.h"
#include "support/event_recorder.h"
#include "support/limited_allocator.h"
#include "support/pipeline_jobs.h"
#include "support/qrx_file.h"
#include "support/temp_dir.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// The test takes the parts of the driver and the writer.
class workers : public testing::Test {
  protected:
    workers() { memory.refuse_from(usize{1} << 31); }

    /// Returns the next block of the file.
    block_job next_block(const file_parameters& parameters)
    {
        block_job job = job_to_encode(work.buffers, bytes(1000), parameters);
        job.block_index = blocks++;
        job.block_count = 100;
        job.out_file = file;
        return job;
    }

    /// Returns a payload for the next block, of `out_len` bytes.
    block_job next_payload(u32 out_len)
    {
        block_job job = job_to_decode(work.buffers, m1_run_payload('q', 900), out_len);
        job.block_count = 100;
        job.out_file = file;
        return job;
    }

    std::future<void> start()
    {
        return in_thread([this] { run_worker(work); });
    }

    /// Sends the sentinel; returns whether the worker ends without another finished block.
    bool ends_with_nothing_more(const std::future<void>& worker)
    {
        work.jobs.enqueue(end_of_work());
        if (!finishes(worker)) return false;
        work.writes.enqueue({});
        return work.writes.dequeue().buf == nullptr;
    }

    const time_guard guard;
    temp_dir dir;
    event_recorder recorder;
    limited_allocator memory;
    engine work{memory.get(), 1, recorder.watcher()};
    output_ref file = create_output(dir / "out");
    u32 blocks = 0;
};

} // namespace quarnex::test
