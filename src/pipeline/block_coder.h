// pipeline/block_coder.h - runs one block through its codec and filter, for a worker or for
// a driver without workers
#pragma once

#include "common/scratch.h"
#include "pipeline/jobs.h"

namespace quarnex {

enum class block_status : u8 {
    done,
    no_buffer, // no memory for the output
    uncoded,   // no memory for the codec
};

/// The outcome of a block.
struct block_result {
    block_status status = block_status::done;
    codec_status codec_error = codec_status::done; // set when uncoded
    u32 produced = 0;                              // bytes that the codec wrote
    bool exact_end = true; // the payload of a decoded block ends exactly where the block does
};

/// Runs the encoder of the job's method on a filtered block of 1 byte or more.  Stores the block if
/// the encoder's output is not shorter.
codec_result encode(const codec_job& job);

/// Decodes a payload that is not stored.
codec_result decode(const codec_job& job);

/// Encodes or decodes the block of `job`, as job.mode says.  The codec takes its working memory
/// from `memory`.
///
/// When compressing, `finished` receives the block's record, with displacement 0, after the file
/// header if the job has one.  If the job has an `out_buf`, the payload is written there instead,
/// and the head directly before it.  The block is stored if the encoder's output is not shorter
/// than the block.
///
/// When decompressing, the filter is undone and `finished` receives the block's `out_len` bytes; if
/// the job has an `out_buf`, that receives them instead.  If the decoder produces fewer bytes, the
/// rest is filled with zeros before the filter is undone.
///
/// Frees the input, if the job owns it, as soon as the codec has succeeded.
block_result code_block(buffer_pool& buffers, scratch& memory, block_job& job, write_job& finished);

/// Writes a finished block to its file: a record is appended as record number `sequence`, decoded
/// data goes to the block's offset.  Returns errno, or 0 on success.
[[nodiscard]] int write_block(write_job& finished, u32 sequence);

} // namespace quarnex
