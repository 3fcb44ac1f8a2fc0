// common/scratch.h - memory that a thread keeps from block to block
//
// Each worker owns a scratch, and so does the engine, which uses it when there are no workers.  A
// codec allocates through it and may leave its large hash table there for the next block.
#pragma once

#include "common/allocator.h"
#include "common/owned_array.h"
#include "common/types.h"

namespace quarnex {

/// A hash table between two blocks.
struct idle_table {
    owned_array<u32> entries;
    usize count = 0;          // number of entries; 0 for no table
    bool large_pages = false; // large pages were requested
    u32 highest = 0;          // no entry is higher
};

struct scratch {
    explicit scratch(const allocator& memory) : source(memory) {}
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;

    const allocator& source; // for all memory of a codec; outlives the scratch
    idle_table table;
};

} // namespace quarnex
