// pipeline/record_index.h - where the record of each block lies in a file
//
// The heads of all records are read and checked once: five bytes for each block.  Then blocks can
// be read in any order.
#pragma once

#include "common/byte_stream.h"
#include "common/owned_array.h"
#include "format/records.h"
#include "pipeline/notices.h"

#include <optional>

namespace quarnex {

/// The payload of a block.
struct block_place {
    u64 offset = 0; // in the file; 0 if the block has no record
    u32 size = 0;
    bool is_summed = false; // for the owner of the index

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
    /// noted in layout_fault(), but is not a failure: what was found can be used.  A second call
    /// only reports the damage once more.
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
    /// Length of a block in bytes; 0 for the only one of an empty file.  A block that has a record
    /// has at most INT32_MAX bytes.
    u64 length_of(u32 block) const;
    /// Index of the first block from `block` on that has a record (`is_found`) or has none; the
    /// number of blocks that can have one if there is no such block.
    u32 skip_to(u32 block, bool is_found) const;
    /// The place of a block, or null if it has none.
    block_place* find(u32 block);
    const block_place* find(u32 block) const;

  private:
    u32 max_places(const byte_source& file) const;
    /// Reads the record at `position` and moves past it, unless that is impossible.
    [[nodiscard]] status read_record(const byte_source& file, const listener& watcher,
                                     const listener& damage_watcher, u32 sequence, u64& position);
    [[nodiscard]] status read_end(const byte_source& file, const listener& watcher,
                                  const listener& damage_watcher, u64 position);
    /// Reports each run of missing blocks as one fault, with the number of blocks as `wanted`.
    void report_missing(const listener& damage_watcher);
    /// Reports a fault of the layout.
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
