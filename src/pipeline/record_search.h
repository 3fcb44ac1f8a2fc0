// pipeline/record_search.h - finds the records after a damaged part of a file
//
// Record heads form a chain: each gives the position of the next, and the last record ends at the
// end of the file or at its seal.  The search scans the file backwards from its end, in windows,
// and keeps the *anchored* positions in a hash table: those with a plausible head of a record that
// ends at an anchored position or at the end.  Each position is visited once, so the time is linear
// in the bytes scanned, whatever they contain.  The number of records lost in the damage is
// unknown, so the number of a record follows from its distance, in records, from the end.
//
// A chain between two damaged parts can't be numbered from either end: it is lost.
#pragma once

#include "common/byte_stream.h"
#include "common/owned_array.h"
#include "format/records.h"
#include "pipeline/notices.h"

#include <optional>

namespace quarnex {

/// Positions scanned at a time, unless the file is in memory.
inline constexpr usize search_window_bytes = usize{1} << 20;

/// The last heads of a walk over the records from the start of the file to the first invalid or
/// truncated head.  They may be false: a damaged size can lead into a payload, whose bytes can look
/// like a head.
struct record_trail {
    /// The search may discard up to this number of records at the end of the walk.
    static constexpr u32 max_retreat = 4;

    u32 count = 0;             // records walked over
    bool is_confirmed = false; // the last head is plausible, only its record is truncated
    /// Position of the head of record n, at n % size.  The last one is where the walk ended.
    std::array<u64, max_retreat + 1> heads{file_header_bytes};

    void add(u32 record, u64 position)
    {
        heads[record % heads.size()] = position;
        count = record;
    }
    u64 head_of(u32 record) const { return heads[record % heads.size()]; }
    u32 oldest() const { return count < max_retreat ? 0 : count - max_retreat; }
};

/// A chain of records up to the end of the file.
struct record_chain {
    u64 start = 0;   // position of its first head, or of its end if `records` is 0
    u32 records = 0; // the last one has number record_count() - 1
    u32 kept = 0;    // records of the trail that are kept, before the damage
    u64 gap = 0;     // start of the damaged part
    /// Exactly one record is lost.  It extends from `gap` to `start`, so its size is known without
    /// its head.
    bool has_lost_one = false;
};

/// True if an undamaged file can have this head.  Encoders write an empty payload only into an
/// empty file, so zeros are not a head.
inline bool is_plausible(const file_layout& layout, const record_head& head)
{
    return head.size != 0 || layout.block_count == 0;
}

/// Upper bound on the bytes that find_chain() allocates.
u64 chain_search_memory(const file_layout& layout, const byte_source& file);

/// Finds the chain that, together with the records of `trail` before it, gives the most records.
/// `found` stays empty if those are no more than the trail has.  Fails if reading fails, which is
/// reported, or with no_memory, which isn't.
[[nodiscard]] status find_chain(const allocator& source, const byte_source& file,
                                const file_layout& layout, const record_trail& trail,
                                const listener& watcher, std::optional<record_chain>& found);

} // namespace quarnex
