// pipeline/block_coder.h - one block through its codec: what a worker does, and a driver that has
// no workers
#pragma once

#include "common/scratch.h"
#include "pipeline/jobs.h"

namespace quarnex {

enum class block_status : u8 {
    done,
    no_buffer, // no memory for the output
    uncoded,   // no memory for the codec
};

/// What became of a block.
struct block_result {
    block_status status = block_status::done;
    codec_status lack = codec_status::done; // when uncoded
    u32 produced = 0;                       // bytes that the codec has made
};

/// Codes the block of a job in the direction that it names, in the memory of `memory`.
///
/// Compressing, `finished` gets the block's record, with displacement 0.  An encoder's output that
/// is not shorter than the block is replaced by the block itself.
///
/// Decompressing, the filter is undone, and `finished` gets the block's data, `out_len` bytes.  If
/// the decoder has produced fewer, the rest is zero, as far as the filter leaves it so.
///
/// The input is freed as soon as it is not needed.
block_result code_block(buffer_pool& buffers, scratch& memory, block_job& job, write_job& finished);

/// Writes a finished block to its file: as record number `sequence` when compressing, or to its
/// block's place.  Returns the system's error number, 0 for none.
[[nodiscard]] int write_block(write_job& finished, u32 sequence);

} // namespace quarnex
