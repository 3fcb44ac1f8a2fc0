// common/scratch.h - what the owner of a codec keeps from block to block
//
// Each worker, and each handle that codes blocks by itself, has a scratch of its own.  A codec
// takes its memory from it and may leave the large table of a search there for the next block.
#pragma once

#include "common/allocator.h"
#include "common/owned_array.h"
#include "common/types.h"

namespace quarnex {

/// A table that no block uses at the moment.
struct idle_table {
    owned_array<u32> entries;
    usize count = 0; // of the entries; 0 if there are none
    bool large_pages = false;
    bool zero = false; // all entries are zero
};

struct scratch {
    explicit scratch(const allocator& from) : source(from) {}
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;

    const allocator& source; // of all memory that a codec takes; outlives the scratch
    idle_table table;
};

} // namespace quarnex
