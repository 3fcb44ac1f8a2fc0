// pipeline/jobs.h - the records that travel through the engine, by value
#pragma once

#include "coding/codec.h"
#include "format/file_parameters.h"
#include "pipeline/buffer_pool.h"
#include "pipeline/events.h"
#include "pipeline/output_file.h"

namespace quarnex {

/// One block on its way to a codec.  A job without a file ends a worker: nothing that a damaged
/// header says can look like one.
struct block_job {
    codec_job codec;
    direction mode = direction::compress;
    u8 filter_flags = 0;
    u16 block_mb = 0;
    u32 block_index = 0;   // number of the block in its file, from 0
    u32 block_count = 0;   // blocks in the file; 0 for an empty one
    block_buffer in_alloc; // owns codec.in_buf
    output_ref out_file;

    /// Takes over what holds for all blocks of a file.
    void set_parameters(const file_parameters& parameters)
    {
        codec.parameters = parameters.codec;
        filter_flags = parameters.filter_flags;
        block_mb = parameters.block_mb;
    }
};

/// One finished block on its way to the writer.
struct write_job {
    output_ref out_file;
    direction mode = direction::compress; // a record to append, or data with a place of its own
    u16 block_mb = 0;
    u32 block_index = 0;
    u32 block_count = 0;
    block_buffer buf; // the bytes to write; null ends the writer
    u32 size = 0;     // bytes at buf to write
};

} // namespace quarnex
