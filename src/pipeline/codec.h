// pipeline/codec.h - the records that travel through the pipeline, and the shape of a codec
//
// A codec knows nothing else of the pipeline than this header, and the pipeline nothing else of a
// codec than its two codec_entry rows.
#pragma once

#include "common/types.h"
#include "pipeline/buffer_pool.h"

#include <memory>

namespace quarnex {

class output_file; // pipeline/output_file.h

inline constexpr u32 page_size = 4096;

/// Zeroed bytes behind an input block: encoders read a few bytes past the block.
inline constexpr u32 in_slack = page_size + 1;
/// Bytes behind an output block: encoders write up to one token past the block's size before they
/// notice, decoders copy in whole words.
inline constexpr u32 out_slack = page_size;
/// Zeroed bytes behind a payload: decoders load whole words, and test for the end now and then.
inline constexpr u32 payload_slack = page_size + 1025;

/// What the command line or a file's header says about all blocks of a file.
struct file_parameters {
    u8 method = 0;       // 1 to 5
    u8 level = 255;      // 0 to 9; 255: not chosen yet
    u8 lit_ctx_bits = 0; // literal context bits, 0 to 8
    u8 filter_flags = 0; // low nibble: the pre-filter; 0 is none
    u16 block_mb = 32;   // block size in MiB
    i32 hash_bits = 0;   // log2 of the encoder's hash table size; below 10: the level's default
    i32 chain_bits = 0;  // log2 of the candidates for a hash value; 0: the level's default

    /// Bytes in each block but the last.
    u64 block_size() const { return u64{block_mb} << 20; }
};

/// One block on its way to a codec.  A job without a file ends a worker: nothing that a damaged
/// header says can look like one.
struct block_job {
    file_parameters parameters;
    u32 in_len = 0;      // bytes at in_buf: the block's when encoding, the payload's when decoding
    u32 block_index = 0; // number of the block in its file, from 0
    u32 block_count = 0; // blocks in the file; 0 for an empty one
    block_buffer in_alloc;      // owns in_buf
    const u8* in_buf = nullptr; // what the codec reads, with slack behind it
    u8* out_buf = nullptr;      // where the codec writes, with out_slack behind the block
    u32 out_len = 0;            // when decoding: the exact length of the block's data
    std::shared_ptr<output_file> out_file;
};

/// One finished block on its way to the writer.
struct write_job {
    std::shared_ptr<output_file> out_file;
    u32 block_index = 0;
    u32 block_count = 0;
    u16 block_mb = 0; // 0: a block record; otherwise decoded data and the file's block size in MiB
    block_buffer buf; // the bytes to write; null ends the writer
    u32 size = 0;     // bytes at buf to write
};

/// The three operations of an encoder or a decoder, each called once for a block.
struct codec_entry {
    /// Makes the state of one block; null on failure.  Codecs without state return any other value.
    void* (*init)(const block_job& job);
    /// Codes the block and returns the number of bytes at `out_buf`, or a negative number on
    /// failure. An encoder whose stream would not be shorter than the block returns a raw copy of
    /// it.
    i32 (*run)(const block_job& job, void* state);
    /// Frees the state.
    void (*release)(const block_job& job, void* state);
};

/// What a codec without state has for one.
inline void* no_state(const block_job& /*job*/)
{
    static char any;
    return &any;
}
inline void release_nothing(const block_job& /*job*/, void* /*state*/) {}

/// Copies the block to `out_buf` unchanged and returns its length, which marks it as stored.
i32 store_block(const block_job& job);

/// The result of an encoder whose stream of `len` bytes is at `out_buf`.  One that is not shorter
/// than the block gives way to the block itself; a length of 0 stands for such a stream.
inline i32 shorter_stream(const block_job& job, u32 len)
{
    return len != 0 && len < job.in_len ? static_cast<i32>(len) : store_block(job);
}

/// The result of an encoder that needs more memory than there is: reports that, which ends the
/// process.
i32 report_no_memory(const block_job& job);

} // namespace quarnex
