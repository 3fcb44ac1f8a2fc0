#include "tool/block_map.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tool {
namespace {

constexpr uint64_t line_characters = 64;
constexpr uint64_t max_lines = 64;

/// Returns the blocks that have faults, sorted.
std::vector<uint64_t> damaged_blocks(const observer& watcher)
{
    std::vector<uint64_t> blocks;
    for (const qrx_event& fault : watcher.events)
        if (fault.block != QRX_NO_BLOCK && fault.what != QRX_BLOCK_MISSING)
            blocks.push_back(fault.block);
    std::sort(blocks.begin(), blocks.end());
    return blocks;
}

void append(std::vector<block_run>& runs, const block_run& next)
{
    if (runs.empty() || runs.back().state != next.state) {
        runs.push_back(next);
        return;
    }
    runs.back().count += next.count;
    runs.back().payload_size += next.payload_size;
}

/// Returns the most severe state of `run` and the following runs that start before block `last`.
/// `run` becomes the last of these.
block_state worst_state(std::vector<block_run>::const_iterator& run, uint64_t last)
{
    block_state worst = run->state;
    while (run->first + run->count < last) {
        ++run;
        worst = std::max(worst, run->state);
    }
    return worst;
}

std::string numbered(uint64_t block, const std::string& characters)
{
    std::array<char, 32> number;
    std::snprintf(number.data(), number.size(), "%12llu  ", static_cast<unsigned long long>(block));
    return number.data() + characters;
}

} // namespace

const char* state_name(block_state state)
{
    constexpr std::array names{"compressed", "stored", "missing", "damaged"};
    return names[static_cast<size_t>(state)];
}

char state_character(block_state state)
{
    return "#=.!"[static_cast<size_t>(state)];
}

std::vector<block_run> block_runs(const open_reader& input)
{
    const qrx_info& info = input.info;
    const std::vector<uint64_t> damaged = damaged_blocks(input.watcher);
    std::vector<block_run> runs;
    uint64_t block = 0;
    for (uint64_t left = info.blocks_found; left != 0 && block < info.block_count; ++block) {
        qrx_block_info found{};
        found.struct_size = sizeof found;
        qrx_reader_block_info(input.reader.get(), block, &found);
        block_run next{block, 1, block_state::missing, found.payload_size};
        if (found.is_found != 0) {
            --left;
            next.state = found.is_stored != 0 ? block_state::stored : block_state::compressed;
            if (std::binary_search(damaged.begin(), damaged.end(), block))
                next.state = block_state::damaged;
        }
        append(runs, next);
    }
    if (block != info.block_count)
        append(runs, {block, info.block_count - block, block_state::missing, 0});
    return runs;
}

block_map draw_map(const std::vector<block_run>& runs)
{
    block_map map;
    if (runs.empty()) return map;
    const uint64_t count = runs.back().first + runs.back().count;
    map.scale = (count - 1) / (line_characters * max_lines) + 1;
    auto run = runs.begin();
    std::string previous;
    for (uint64_t block = 0; block < count;) {
        const uint64_t line_start = block;
        std::string line;
        while (line.size() < line_characters && block < count) {
            while (run->first + run->count <= block) ++run;
            block = std::min(block + map.scale, count);
            line += state_character(worst_state(run, block));
        }
        if (line != previous)
            map.lines.push_back(numbered(line_start, line));
        else if (map.lines.back() != "*")
            map.lines.emplace_back("*");
        previous = line;
    }
    return map;
}

} // namespace tool
