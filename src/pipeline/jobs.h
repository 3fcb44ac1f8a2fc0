// pipeline/jobs.h - the records in the engine's queues
#pragma once

#include "coding/codec.h"
#include "common/object_array.h"
#include "format/container.h"
#include "pipeline/buffer_pool.h"
#include "pipeline/events.h"
#include "pipeline/output_file.h"

namespace quarnex {

/// One block to be coded, or some small files.  A job with neither is the sentinel that ends a
/// worker; no damaged header can produce one.
struct block_job {
    codec_job codec;
    direction mode = direction::compress;
    u8 filter_flags = 0;
    u16 block_mb = 0;
    u32 block_index = 0;    // number of the block in its file, from 0
    u32 block_count = 0;    // blocks in the file, 0 if it is empty
    usize buffer_bytes = 0; // minimum size of both buffers, so that other blocks can reuse them
    block_buffer in_alloc;  // owns codec.in_buf
    output_ref out_file;
    /// The file header to be written before the record, if `has_header`.
    std::array<u8, file_header_bytes> header{};
    bool has_header = false;
    /// Small files, each of one block, to be coded, written and closed by one worker.  All other
    /// members are unused then.
    object_array<block_job> files;
    u32 file_count = 0; // how many of `files` are used, from the first; 0 for a block

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
    u32 head = 0;     // offset of the record head, after the file header if that is included
};

} // namespace quarnex
