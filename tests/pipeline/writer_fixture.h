// pipeline/writer_fixture.h - a writer thread and its queue
#pragma once

#include "pipeline/engine.h"
#include "support/event_recorder.h"
#include "support/pipeline_jobs.h"
#include "support/temp_dir.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

namespace quarnex::test {

using destination = output_ref;

/// Runs the writer on a thread.  The test takes the part of the workers.
class writer : public testing::Test {
  protected:
    destination create(const std::string& name) { return create_output(dir / name); }

    /// Queues a record with one payload byte for the writer.
    void put_record(const destination& file, u32 index, u32 count, char payload = 'p')
    {
        write_job record = make(file, {1, 0, 0, 0, 0, static_cast<u8>(payload)}, index, count);
        work.writes.enqueue(std::move(record));
    }

    /// Queues decoded data of a file with blocks of 1 MiB for the writer.
    void put_data(const destination& file, u32 index, u32 count, const bytes& data)
    {
        write_job block = make(file, data, index, count);
        block.mode = direction::decompress;
        block.block_mb = 1;
        work.writes.enqueue(std::move(block));
    }

    void end()
    {
        work.writes.enqueue({});
        ASSERT_TRUE(finishes(thread));
    }

    bytes content(const std::string& name) const { return read_file(dir / name); }

  private:
    write_job make(const destination& file, const bytes& content, u32 index, u32 count)
    {
        write_job job;
        job.buf = fill_buffer(work.buffers, content, 0);
        job.size = static_cast<u32>(content.size());
        job.block_index = index;
        job.block_count = count;
        job.out_file = file;
        return job;
    }

    const time_guard guard;

  protected:
    temp_dir dir;
    event_recorder recorder;
    engine work{system_allocator, 2, recorder.watcher()};
    std::future<void> thread = in_thread([this] { run_writer(work); });
};

} // namespace quarnex::test
