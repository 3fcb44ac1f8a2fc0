// tool/block_map.h - the state of each block of a file, as runs and as a map of characters
//
// A damaged header can claim 2^32 blocks, of which nearly all are missing.  Time and memory depend
// only on the number of blocks that have a record.
#pragma once

#include "tool/library.h"

namespace tool {

/// In increasing order of severity: a character of the map that stands for several blocks shows
/// their most severe state.
enum class block_state { compressed, stored, missing, damaged };

const char* state_name(block_state state);
char state_character(block_state state);

/// Consecutive blocks with the same state.
struct block_run {
    uint64_t first = 0;
    uint64_t count = 0;
    block_state state = block_state::missing;
    uint64_t payload_size = 0;
};

/// Returns the runs of all blocks, in order.  Blocks that have a record and a fault among the
/// events of `input` are damaged.
std::vector<block_run> block_runs(const open_reader& input);

/// A map: one character for every `scale` blocks, 64 to a line.
struct block_map {
    uint64_t scale = 1;
    std::vector<std::string> lines; // "*" for a line equal to the previous one
};

block_map draw_map(const std::vector<block_run>& runs);

} // namespace tool
