// support/pipeline_jobs.h - jobs for tests of pipeline parts without a driver
#pragma once

#include "pipeline/engine.h"
#include "support/mib.h"
#include "support/shapes.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace quarnex::test {

/// Method 1 at level 0, in blocks of 1 MiB.
inline constexpr file_parameters quick_parameters{
    .codec = {.method = 1, .level = 0, .hash_bits = 12, .chain_bits = 1}, .block_mb = 1};

/// A hash table of 4 GiB, for encoders with an allocator that refuses it.
inline constexpr file_parameters failing_parameters{
    .codec = {.method = 1, .level = 0, .hash_bits = 30, .chain_bits = 1}, .block_mb = 1};

/// Returns a buffer of the pool with `content` and `slack` zeros after it.
inline block_buffer fill_buffer(buffer_pool& buffers, const bytes& content, usize slack)
{
    block_buffer buffer = buffers.take(content.size() + slack);
    std::copy(content.begin(), content.end(), buffer.get());
    std::memset(buffer.get() + content.size(), 0, slack);
    return buffer;
}

/// Returns a job as the compression driver submits it.
inline block_job job_to_encode(buffer_pool& buffers, const bytes& block,
                               const file_parameters& parameters = quick_parameters)
{
    block_job job;
    job.mode = direction::compress;
    job.set_parameters(parameters);
    job.codec.in_len = static_cast<u32>(block.size());
    job.block_count = 1;
    job.in_alloc = fill_buffer(buffers, block, in_slack);
    job.codec.in_buf = job.in_alloc.get();
    return job;
}

/// Returns a job as the decompression driver submits it.
inline block_job job_to_decode(buffer_pool& buffers, const bytes& payload, u32 out_len)
{
    block_job job;
    job.mode = direction::decompress;
    job.set_parameters(quick_parameters);
    job.codec.in_len = static_cast<u32>(payload.size());
    job.codec.out_len = out_len;
    job.block_count = 1;
    job.in_alloc = fill_buffer(buffers, payload, 0);
    job.codec.in_buf = job.in_alloc.get();
    return job;
}

/// Creates a destination file.
inline output_ref create_output(const std::string& name)
{
    output_ref file = output_file::make(system_allocator, "source", name.c_str());
    if (!file || file->file.create(name.c_str()) != 0) return {};
    return file;
}

inline block_job end_of_work()
{
    return {};
}

/// Returns the bytes of a finished block.
inline bytes content_of(const write_job& finished)
{
    return {finished.buf.get(), finished.buf.get() + finished.size};
}

} // namespace quarnex::test
