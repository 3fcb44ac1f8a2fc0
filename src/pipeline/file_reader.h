// pipeline/file_reader.h - reads any range of a .qrx file
#pragma once

#include "pipeline/ordered_coder.h"
#include "pipeline/record_index.h"

#include <optional>

namespace quarnex {

/// Number of blocks that a reader with `threads` threads holds: the one being read, and one for
/// each thread.
constexpr u32 reader_capacity(u32 threads)
{
    return threads + 1;
}

class file_reader {
  public:
    /// A reader with `threads` threads.  `source` and what `file` points to must outlive it.
    file_reader(const allocator& source, const byte_source& file, const listener& watcher,
                u32 threads, damage_rules rules);
    file_reader(const file_reader&) = delete;
    file_reader& operator=(const file_reader&) = delete;

    /// Reads the header and the record heads.  Threads start when the first block is needed.
    /// Called once, first.  Fails with status::over_limit if the reader may need more than
    /// `memory_limit` bytes.
    [[nodiscard]] status open(u64 memory_limit);

    const record_index& index() const { return index_; }
    u64 original_size() const { return index_.layout().original_size; }

    /// Reads `size` bytes of the original at `offset`, or fewer at its end; `got` receives the
    /// number of valid ones.  Fails at the first damage unless damage is kept.
    [[nodiscard]] status read(u64 offset, u8* dest, usize size, usize& got);

    /// Reads the whole original to `dest`; also fails if the layout has a fault.
    [[nodiscard]] status read_all(u8* dest, usize& got);

    /// Reads the payload of a block: block_place::size bytes.
    [[nodiscard]] status read_payload(u32 block, u8* dest);

    /// Decodes all blocks and checks everything.  Reports each fault and returns the first.
    [[nodiscard]] status test();

  private:
    /// A range of the original, and its destination; null to decode only.
    struct request {
        u64 offset;
        u64 end;
        u8* dest;
        bool reads_ahead; // also submits blocks after `end`

        bool covers(u64 start, u64 length) const
        {
            return offset <= start && start + length <= end;
        }
        u8* dest_of(u64 position) const { return dest + (position - offset); }
    };

    status test_all();
    /// Reads the header, or reconstructs a damaged one if the reader searches.
    [[nodiscard]] status read_header(u64 memory_limit);
    /// Loads the blocks of a request in order, up to the first fault that isn't skipped.  `done`
    /// receives the end of the valid bytes.
    status run(const request& wanted, u64& done, bool skips_damage);
    status run_block(u32 block, const request& wanted, u64& done, bool skips_damage);
    /// Returns a finished block, and submits blocks after it while there is room.
    ordered_block& load(u32 block, const request& wanted);
    void submit(u32 block, const request& wanted);
    /// Prepares a block for decoding, or sets its fault if that is impossible.
    void fill(ordered_block& next, u32 block, const request& wanted);
    status read_into(ordered_block& next, const block_place& place);
    status read_bytes(const block_place& place, u8* dest, notice& fault) const;
    /// Checks a decoded block and reports its fault once.
    status judge(ordered_block& loaded);
    status add_sum(u32 block, u32 sum);
    status check_seal();
    void forget_sums();

    const allocator& source_;
    const byte_source file_;
    const listener watcher_;
    const u32 threads_;
    const damage_rules rules_;
    record_index index_;
    std::optional<ordered_coder> coder_; // made when a block is needed
    u32 first_ = 0;                      // the block at the front of the coder
    u32 next_ = 0;                       // the block to submit next
    u64 expected_ = UINT64_MAX;          // end of the last read; a read from there is sequential
    u32 unsummed_ = 0;                   // blocks missing in sum_
    u32 sum_ = 0; // XOR of the blocks' CRC-32s, each shifted to the end of the original
};

} // namespace quarnex
