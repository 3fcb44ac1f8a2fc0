// pipeline/memory_needs.h - upper bounds on the memory of codecs, file_reader and file_writer
#pragma once

#include "format/file_parameters.h"

namespace quarnex {

/// Bytes for blocks of up to `length` bytes with `threads` threads, not counting a reader's index.
u64 reader_memory(const file_parameters& parameters, u64 length, u32 threads);
u64 writer_memory(const file_parameters& parameters, u64 length, u32 threads);

/// Bytes that a decoder needs besides the block and its payload.
u64 decoder_memory(const codec_parameters& parameters, u64 length);

} // namespace quarnex
