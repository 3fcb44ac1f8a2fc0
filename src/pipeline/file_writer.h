// pipeline/file_writer.h - writes a .qrx file piece by piece
//
// Records are written in the order of the blocks, so the file is the same with any number of
// threads.
#pragma once

#include "common/byte_stream.h"
#include "format/container.h"
#include "pipeline/ordered_coder.h"

#include <optional>

namespace quarnex {

inline constexpr u64 unknown_size = UINT64_MAX;

/// Number of blocks that a writer with `threads` threads holds besides the one being filled: one
/// for each thread, and one that is being written.
constexpr u32 writer_capacity(u32 threads)
{
    return threads + 1;
}

class file_writer {
  public:
    /// A writer with settled parameters; `original_size` may be unknown_size.  `source` and what
    /// `file` points to must outlive it.
    file_writer(const allocator& source, const byte_sink& file, const listener& watcher,
                const file_parameters& parameters, u32 threads, bool seals, u64 original_size);
    file_writer(const file_writer&) = delete;
    file_writer& operator=(const file_writer&) = delete;

    /// Starts the threads.  Called once, first.  Fails with status::over_limit if the writer may
    /// need more than `memory_limit` bytes.
    [[nodiscard]] status open(u64 memory_limit);
    /// Writes the header if the size is known.  Called once, second.
    [[nodiscard]] status begin();

    /// Appends bytes of the original: all of them, or none if they exceed the declared size.  After
    /// a failure, every call returns it again; status::bad_argument changes nothing.
    [[nodiscard]] status write(const u8* src, usize size);
    /// Lends the address for the next bytes of the original; `room` receives how many fit.  See
    /// advance().
    [[nodiscard]] status lend(u8*& dest, usize& room);
    /// Appends the first `size` bytes at the address from lend().
    [[nodiscard]] status advance(usize size);

    /// Appends a coded block of `length` bytes; only at a block boundary.  `sum` is the CRC-32 of
    /// the block; if it is null, the payload of a sealed file is decoded to compute it.
    [[nodiscard]] status write_raw(const u8* payload, usize size, usize length, const u32* sum);

    /// Writes the remaining blocks, the seal, and the header if the size was unknown.  Nothing can
    /// be appended then, unless it was refused with status::bad_argument, for lack of bytes.
    [[nodiscard]] status finish();

  private:
    u64 block_size() const { return parameters_.block_size(); }
    /// How many more bytes of the original are accepted.
    u64 left() const { return is_ended_ ? 0 : declared_size_ - original_size_ - filled_; }
    status fail(const notice& fault);
    status fail_to_write(u64 offset, int error);
    /// Starts a block unless one is being filled.
    status start_block();
    void submit_block();
    u8* find_place() const;
    [[nodiscard]] bool fill_raw(ordered_block& next, const u8* payload, u32 size, u32 length);
    /// Makes room in the ring for one block.
    status make_room();
    /// Writes the oldest block.
    status write_front();
    status write_bytes(const u8* src, usize size);
    status write_header();

    const byte_sink file_;
    const listener watcher_;
    const file_parameters parameters_;
    const bool seals_;
    const u64 declared_size_;
    const u32 threads_; // those that can have work
    ordered_coder coder_;

    block_buffer filling_;  // the block being filled
    u32 filled_ = 0;        // bytes in it
    u32 lent_ = 0;          // bytes that lend() offered, after the filled ones
    u64 original_size_ = 0; // bytes in submitted blocks
    u32 submitted_ = 0;     // number of submitted blocks
    bool is_ended_ = false; // by a raw block shorter than the block size, or by finish()
    u64 written_size_ = 0;  // bytes of the original in written blocks
    u64 position_ = file_header_bytes;
    u32 sum_ = 0; // of the written blocks
    status failure_ = status::done;
};

} // namespace quarnex
