// pipeline/record_index.h - offset and size of each block's payload in a file
//
// The heads of all records, five bytes each, are read and checked once.  Then blocks can be read in
// any order.  On request, records after a damaged part are searched for (record_search.h).
#pragma once

#include "common/byte_stream.h"
#include "common/owned_array.h"
#include "pipeline/record_search.h"

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
    /// Creates an index.  If `searches`, records after damage are searched for.
    explicit record_index(bool searches) : searches_(searches) {}

    /// Reads a file's header.
    [[nodiscard]] status read_header(const byte_source& file, const listener& watcher);
    /// Replaces a damaged header, whose `fault` the owner has reported.
    void replace_header(const file_layout& layout, status fault)
    {
        layout_ = layout;
        header_fault_ = fault;
    }

    /// Bytes that read_records() allocates: 16 per block, bounded by the size of the file.
    u64 memory_needed(const byte_source& file) const;
    /// Further bytes that the first call of read_records() allocates and frees again.
    u64 search_memory(const byte_source& file) const;

    /// Reads the heads of all records and the seal.  Damage is reported to `damage_watcher` and
    /// noted in layout_fault(), but is not a failure: the blocks found can be read.  A second call
    /// only reports the damage again.  If the first call searches, it may also report damage in
    /// records that it discards later.
    [[nodiscard]] status read_records(const allocator& source, const byte_source& file,
                                      const listener& watcher, const listener& damage_watcher);
    /// Returns the fault to report for a block without a record: that of the place where the
    /// records end early, and its offset, or block_missing.
    status missing_fault(u64& offset) const;
    /// Sets is_summed of all blocks to false.
    void forget_sums();

    const file_layout& layout() const { return layout_; }
    u32 found() const { return found_; }
    u32 stored() const { return stored_; }
    const std::optional<u32>& seal() const { return seal_; }
    /// Whether the header and the record heads are exactly as writers of sealed files write them,
    /// even where readers ignore differences.
    bool is_canonical() const { return is_canonical_; }
    /// The first fault of the layout, as later calls of read_records() report it: done, truncated,
    /// corrupt, block_missing, block_repeated or trailing_bytes, or not_qrx if the header was
    /// replaced.
    status layout_fault() const { return layout_fault_; }

    u64 offset_of(u32 block) const { return block * layout_.parameters.block_size(); }
    /// Length of a block in bytes; 0 for the only block of an empty file.  At most INT32_MAX for a
    /// block that has a record.
    u64 length_of(u32 block) const;
    /// Returns the first block from `block` on that has a record (`is_found`) or has none
    /// (`!is_found`); if there is no such block, the number of blocks that can have a record.
    u32 skip_to(u32 block, bool is_found) const;
    /// Returns the place of a block, or null if it has no record.
    block_place* find(u32 block);
    const block_place* find(u32 block) const;

  private:
    /// A walk over the record heads.
    struct walk {
        const byte_source& file;
        const listener& watcher;
        const listener& damage_watcher;
        const bool is_first;
        record_trail trail{};
        notice fault{.what = status::done}; // of the head where the walk ended early
        bool is_canonical = true;           // the heads are as in sealed files

        u64 position() const { return trail.head_of(trail.count); }
    };

    u32 max_places(const byte_source& file) const;
    /// Reads the record heads up to number `end`, or to one that is invalid or truncated.
    [[nodiscard]] status read_to(walk& at, u32 end);
    /// Reads the next record head and moves past the record, or sets `at.fault` if the head is
    /// invalid or the record truncated.
    [[nodiscard]] status read_record(walk& at);
    /// Adds the next record of a walk, for `block`.
    void add_record(const walk& at, const record_head& head, u32 block);
    void place_record(u32 block, const block_place& place);
    void remove_record(u32 block);
    [[nodiscard]] status read_end(const walk& at);

    /// Searches for the chain of records after the head where a walk ended.  If the chain
    /// contradicts the last records of the walk, walks again without them.
    [[nodiscard]] status search(const allocator& source, walk& at);
    /// Continues a walk with the chain.
    [[nodiscard]] status resume(walk& at);
    /// True if the damaged part before the chain is one record.
    bool has_lost_one() const { return chain_ && chain_->has_lost_one; }
    /// If exactly one block is missing and one record has no block, assigns the record to the
    /// block: a record of known extent whose head is damaged, or one of two records of the same
    /// block.
    void guess_lost_block();
    /// Reports each run of missing blocks as one fault; `wanted` is its length in blocks.
    void report_missing(const listener& damage_watcher);
    /// Reports a fault of the layout, and keeps the first one.
    void note(const listener& damage_watcher, const notice& fault);

    const bool searches_;
    file_layout layout_{};
    owned_array<block_place> places_;
    u32 place_count_ = 0;
    u32 found_ = 0;
    u32 stored_ = 0;
    std::optional<u32> seal_;
    bool is_canonical_ = true;
    status header_fault_ = status::done; // not_qrx or corrupt if the header was replaced
    status layout_fault_ = status::done;
    u64 fault_offset_ = 0;
    std::optional<record_chain> chain_; // after a damaged part
    block_place repeated_{};            // the last record whose block already had one
    u32 repeated_count_ = 0;
    std::optional<notice> guess_; // the block whose record was guessed, and the record's offset
};

} // namespace quarnex
