// pipeline/compression.h - a file that is being compressed: its blocks up to the codec
#pragma once

#include "pipeline/driver_file.h"

namespace quarnex {

struct compression {
    driver_file& file;
    const char* const name; // of the source, for its classification; null: don't classify
    file_parameters parameters;
    u64 size = 0; // of the source when it was opened; later growth is ignored
    u32 block_count = 0;

    /// Reads block `index` of up to `length` bytes, filters it and fills in the job.  Classifies
    /// the file by block 0, whose job receives the header.
    status take_block(block_job& job, u32 index, u32 length);

  private:
    /// Reads the next block into a new buffer and zeroes the slack after it.
    status read_block(block_job& job, u32 length);
    /// Classifies the file by its first block and packs the header.
    void make_header(block_job& first);
};

} // namespace quarnex
