// pipeline/record_index.h - offset and size of each block's payload in a file
//
// The heads of all records, five bytes each, are read and checked once.  Then blocks can be read in
// any order.
#pragma once

#include "common/byte_stream.h"
#include "common/owned_array.h"
#include "format/records.h"
#include "pipeline/notices.h"

#include <optional>

namespace quarnex {

/// Where the payload of a block is.
struct block_place {
    u64 offset = 0; // in the file; 0 if the block has no record
    u32 size = 0;
    bool is_summed = false; // used by the owner of the index only

    bool is_found() const { return offset != 0; }
};

class record_index {
  public:
    /// Reads a file's header.
    [[nodiscard]] status read_header(const byte_source& file, const listener& watcher);

    /// Bytes that read_records() allocates: 16 for each block, bounded by the size of the file.
    u64 memory_needed(const byte_source& file) const
    {
        return sizeof(block_place) * u64{max_places(file)};
    }

    /// Reads the heads of all records and the seal.  Damage is reported to `damage_watcher` and
    /// noted in layout_fault(), but is not a failure: the blocks found can be read.  A second call
    /// only reports the damage again.
    [[nodiscard]] status read_records(const allocator& source, const byte_source& file,
                                      const listener& watcher, const listener& damage_watcher);
    /// Sets is_summed of all blocks to false.
    void forget_sums();

    const file_layout& layout() const { return layout_; }
    u32 found() const { return found_; }
    u32 stored() const { return stored_; }
    const std::optional<u32>& seal() const { return seal_; }
    /// The first fault of the layout: done, truncated, corrupt, block_missing, block_repeated or
    /// trailing_bytes.
    status layout_fault() const { return layout_fault_; }

    u64 offset_of(u32 block) const { return block * layout_.parameters.block_size(); }
    /// Length of a block in bytes; 0 for the only block of an empty file.  At most INT32_MAX for a
    /// block that has a record.
    u64 length_of(u32 block) const;
    /// Returns the first block from `block` on that has a record (if `is_found`) or has none (if
    /// not); without one, the number of blocks that can have a record.
    u32 skip_to(u32 block, bool is_found) const;
    /// Returns the place of a block, or null if it has no record.
    block_place* find(u32 block);
    const block_place* find(u32 block) const;

  private:
    u32 max_places(const byte_source& file) const;
    /// Reads the record head at `position` and moves past the record; stays there if it is invalid
    /// or cut.
    [[nodiscard]] status read_record(const byte_source& file, const listener& watcher,
                                     const listener& damage_watcher, u32 sequence, u64& position);
    [[nodiscard]] status read_end(const byte_source& file, const listener& watcher,
                                  const listener& damage_watcher, u64 position);
    /// Reports each run of missing blocks as one fault; `wanted` is its length in blocks.
    void report_missing(const listener& damage_watcher);
    /// Reports a fault of the layout, and keeps the first one.
    void note(const listener& damage_watcher, const notice& fault);

    file_layout layout_{};
    owned_array<block_place> places_;
    u32 place_count_ = 0;
    u32 found_ = 0;
    u32 stored_ = 0;
    std::optional<u32> seal_;
    status layout_fault_ = status::done;
    bool is_cut_ = false; // no further record can be found
};

} // namespace quarnex
