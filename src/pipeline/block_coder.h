// pipeline/block_coder.h - one block through its codec: what a worker does, and a driver that has
// no workers
#pragma once

#include "pipeline/codec.h"

namespace quarnex {

enum class block_result {
    done,
    not_started, // the codec's init failed
    no_memory,
    failed, // the codec gave a negative result
};

/// Encodes the block at `job.in_buf` and puts its record, with displacement 0, into `record`.  An
/// encoder's output that is not shorter than the block gives way to the block itself.  The input is
/// freed as soon as it is not needed.
block_result encode_block(buffer_pool& buffers, block_job& job, write_job& record);

/// Decodes the payload at `job.in_buf`, undoes the filter, and puts the block's data, `job.out_len`
/// bytes, into `data`.  A decoder that produces another number of bytes is told on standard output;
/// what is missing is zero, as far as the filter leaves it so.  The payload is freed as soon as it
/// is not needed.
block_result decode_block(buffer_pool& buffers, block_job& job, write_job& data);

/// Writes a finished block to its file: as record number `sequence` when compressing, or to its
/// block's place.  False with errno set if it could not be written whole.
[[nodiscard]] bool write_block(write_job& finished, u32 sequence);

} // namespace quarnex
