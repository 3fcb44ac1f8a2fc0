// pipeline/jobs.h - the records in the engine's queues
#pragma once

#include "coding/codec.h"
#include "format/file_parameters.h"
#include "pipeline/buffer_pool.h"
#include "pipeline/events.h"
#include "pipeline/output_file.h"

namespace quarnex {

/// One block to be coded.  A job without a file is the sentinel that ends a worker; no damaged
/// header can produce one.
struct block_job {
    codec_job codec;
    direction mode = direction::compress;
    u8 filter_flags = 0;
    u16 block_mb = 0;
    u32 block_index = 0;   // number of the block in its file, from 0
    u32 block_count = 0;   // blocks in the file, 0 if it is empty
    block_buffer in_alloc; // owns codec.in_buf
    output_ref out_file;

    /// Copies the parameters that all blocks of a file share.
    void set_parameters(const file_parameters& parameters)
    {
        codec.parameters = parameters.codec;
        filter_flags = parameters.filter_flags;
        block_mb = parameters.block_mb;
    }
};

/// One finished block to be written.
struct write_job {
    output_ref out_file;
    direction mode = direction::compress; // append a record, or write data at its offset
    u16 block_mb = 0;
    u32 block_index = 0;
    u32 block_count = 0;
    block_buffer buf; // the bytes to write; null in the sentinel that ends the writer
    u32 size = 0;     // number of bytes to write
};

} // namespace quarnex
