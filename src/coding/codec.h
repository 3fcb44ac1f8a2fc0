// coding/codec.h - the contract between the engine and a codec
//
// A codec reads memory and writes memory: it knows nothing of files, queues or names.  The engine
// knows only the two codec_entry rows of a codec, one for encoding and one for decoding.
#pragma once

#include "common/types.h"

namespace quarnex {

struct scratch; // common/scratch.h

inline constexpr u32 page_size = 4096;

// Only encoders touch bytes past the end of their buffers.  Decoders read nothing past a payload
// and write nothing past a block, so that neighbouring blocks can be decoded at the same time.

/// Zeroed bytes after an encoder's input: it reads a few bytes past the block.
inline constexpr u32 in_slack = page_size + 1;
/// Writable bytes after an encoder's output, past the length of the block: it checks its output
/// size after each token, so it may write one token too many.
inline constexpr u32 out_slack = page_size;

/// What a codec needs to know of a file, the same for all its blocks.
struct codec_parameters {
    u8 method = 0;       // 1 to 5
    u8 level = 255;      // 0 to 9; 255: not chosen yet
    u8 lit_ctx_bits = 0; // literal context bits, 0 to 8
    i32 hash_bits = 0;   // log2 of the encoder's hash table size; below 10: the level's default
    i32 chain_bits = 0;  // log2 of the candidates for a hash value; 0: the level's default
};

/// One block for a codec.
struct codec_job {
    codec_parameters parameters{};
    const u8* in_buf = nullptr; // input; when encoding, followed by in_slack zeros
    u32 in_len = 0;        // bytes at in_buf: the block's when encoding, the payload's otherwise
    u8* out_buf = nullptr; // output; when encoding, of in_len + out_slack bytes
    u32 out_len = 0;       // when decoding: the exact length of the block, all that is written
    scratch* memory = nullptr; // of the worker, for all memory of the codec
};

/// Outcome of a codec: done, or the part for which it could not allocate memory.
enum class codec_status : u8 {
    done,
    no_state, // the models of a block
    no_table, // the hash table of levels 0 to 7
    no_lists, // the match lists of level 8
};

struct codec_result {
    codec_status status = codec_status::done;
    u32 length = 0; // bytes at out_buf
    /// Of a decoder: the payload was consumed whole and ended as encoders end it.
    bool exact_end = false;
};

/// An encoder or a decoder.  init(), run() and release() are each called once per block.
struct codec_entry {
    /// Creates the state for one block; null if out of memory.  Stateless codecs return any
    /// non-null pointer.
    void* (*init)(const codec_job& job);
    /// Codes the block.  An encoder whose stream would not be shorter than the block returns a raw
    /// copy of it, whose length marks it as stored.
    codec_result (*run)(const codec_job& job, void* state);
    /// Frees the state.
    void (*release)(const codec_job& job, void* state);
    /// Upper bound in bytes of the memory used for a block of `len` bytes, besides input and
    /// output.
    u64 (*memory)(const codec_parameters& parameters, u32 len);
};

/// init() of stateless codecs: a placeholder that is not null.
inline void* no_state(const codec_job& job)
{
    return const_cast<codec_job*>(&job);
}
/// release() of stateless codecs.
inline void release_nothing(const codec_job& /*job*/, void* /*state*/) {}
/// memory() of codecs that take none.
inline u64 no_memory_needed(const codec_parameters& /*parameters*/, u32 /*len*/)
{
    return 0;
}

/// Copies the block to `out_buf` unchanged.
codec_result store_block(const codec_job& job);

/// The result of an encoder whose stream of `len` bytes is at `out_buf`.  A stream that is not
/// shorter than the block, or has a length of 0, is replaced by the block itself.
inline codec_result shorter_stream(const codec_job& job, u32 len)
{
    return len != 0 && len < job.in_len ? codec_result{.length = len} : store_block(job);
}

} // namespace quarnex
