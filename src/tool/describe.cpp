#include "tool/describe.h"

#include "tool/block_map.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tool {
namespace {

/// Faults printed without -v: a hostile file can have one per record.
constexpr size_t max_messages = 10;

template <size_t Count>
const char* name_at(const std::array<const char*, Count>& names, uint32_t index)
{
    return index < Count ? names[index] : "unknown";
}

} // namespace

const char* method_name(uint32_t method)
{
    constexpr std::array names{"unknown",
                               "byte-aligned tokens",
                               "static prefix codes",
                               "adaptive prefix codes",
                               "adaptive range coder",
                               "binary range coder"};
    return name_at(names, method);
}

const char* level_name(uint32_t level)
{
    constexpr std::array names{
        "hash table",
        "hash table",
        "hash table, lazy parsing",
        "hash table of pairs, lazy parsing",
        "ring table, lazy parsing",
        "ring table, lazy parsing",
        "ring table, lazy parsing",
        "ring table, lazy parsing",
        "suffix array, optimal parsing",
        "trie, optimal parsing",
    };
    return name_at(names, level);
}

const char* filter_name(uint32_t filter)
{
    constexpr std::array names{"none", "x86", "delta"};
    return name_at(names, filter);
}

std::string cell_text(const qrx_params& params)
{
    std::string text = "-";
    text += std::to_string(params.method);
    text += std::to_string(params.level);
    return text;
}

std::string ratio_text(uint64_t compressed, uint64_t original)
{
    if (original == 0) return "-";
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%.3f",
                  static_cast<double>(compressed) / static_cast<double>(original));
    return text.data();
}

std::string crc_text(uint32_t crc)
{
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "%08lx", static_cast<unsigned long>(crc));
    return text.data();
}

std::string shown_name(const path& name)
{
    return is_stdio(name) ? "(standard input)" : printable(name);
}

void add_layout_faults(open_reader& input)
{
    if (input.info.layout == QRX_OK) return;
    qrx_event fault{};
    fault.struct_size = sizeof fault;
    fault.what = input.info.layout;
    fault.block = QRX_NO_BLOCK;
    const std::vector<block_run> runs = block_runs(input);
    if (fault.what != QRX_BLOCK_MISSING || runs.empty()) input.watcher.events.push_back(fault);
    for (const block_run& run : runs) {
        if (run.state != block_state::missing) continue;
        fault.what = QRX_BLOCK_MISSING;
        fault.block = run.first;
        fault.wanted = run.count;
        input.watcher.events.push_back(fault);
    }
}

void report_faults(const session& run, const path& name, const open_reader& input)
{
    const std::vector<qrx_event>& faults = input.watcher.events;
    const size_t shown =
        run.settings.is_verbose() ? faults.size() : std::min(faults.size(), max_messages);
    for (size_t index = 0; index < shown; ++index)
        run.messages.error(name, fault_text(faults[index], input.info));
    if (shown != faults.size())
        run.messages.error(name, std::to_string(faults.size() - shown) +
                                     " more faults (-v prints them all)");
}

json json_faults(const open_reader& input)
{
    json faults = json::array();
    for (const qrx_event& fault : input.watcher.events)
        faults.push_back(json_fault(fault, input.info));
    return faults;
}

json json_description(const char* command, const path& name, const open_reader& input)
{
    const qrx_info& info = input.info;
    const qrx_params& params = input.params;
    const bool is_sealed = info.is_sealed != 0;
    return {{"command", command},
            {"name", json_name(name)},
            {"original_size", info.original_size},
            {"compressed_size", info.file_size},
            {"ratio", json_ratio(info.file_size, info.original_size)},
            {"method", params.method},
            {"level", params.level},
            {"context_bits", params.context_bits},
            {"filter", filter_name(params.filter)},
            {"block_size", info.block_size},
            {"blocks", info.block_count},
            {"blocks_found", info.blocks_found},
            {"stored_blocks", info.stored_blocks},
            {"sealed", is_sealed},
            {"crc32", is_sealed ? json(crc_text(info.seal)) : json(nullptr)},
            {"faults", json_faults(input)}};
}

} // namespace tool
