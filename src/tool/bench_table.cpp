#include "tool/bench_table.h"

#include "tool/presets.h"

#include <array>
#include <cstdio>

namespace tool {

std::string presets_of(int cell)
{
    std::string text;
    for (size_t preset = 1; preset < preset_cells.size(); ++preset)
        if (preset_cells[preset] == cell)
            text += (text.empty() ? "-" : ",-") + std::to_string(preset);
    return text;
}

std::string files_text(const std::vector<bench_file>& files)
{
    if (files.size() != 1) return std::to_string(files.size()) + " files";
    return is_stdio(files[0].name) ? "standard input" : printable(files[0].name);
}

std::string table_head(const bench_plan& plan, const std::vector<bench_file>& files)
{
    uint64_t size = 0;
    for (const bench_file& file : files) size += file.content.size();
    std::string text = files_text(files);
    text += ", " + size_text(size) + ", " + std::to_string(plan.threads) +
            (plan.threads == 1 ? " thread" : " threads") + "\n\n";
    return text + "                    compress  decompress   compress  decompress\n"
                  "  cell preset  ratio    MB/s        MB/s     memory      memory";
}

std::string table_row(const bench_result& result, bool on_front)
{
    std::array<char, 160> text;
    std::snprintf(text.data(), text.size(), "%s %4d %6s %6.4f %7.*f %11.*f %10s %11s",
                  on_front ? "*" : " ", result.cell, presets_of(result.cell).c_str(),
                  result.ratio(), result.compress_mb_s() < 10 ? 2 : 1, result.compress_mb_s(),
                  result.decompress_mb_s() < 10 ? 2 : 1, result.decompress_mb_s(),
                  size_text(result.compress_memory).c_str(),
                  size_text(result.decompress_memory).c_str());
    return text.data();
}

} // namespace tool
