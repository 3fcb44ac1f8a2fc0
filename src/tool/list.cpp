// Lists files: sizes, parameters and seal.  Reads only headers, record heads and seals.
#include "tool/commands.h"
#include "tool/describe.h"
#include "tool/targets.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tool {
namespace {

/// Prints the table of all files: a header, one line per file, and totals.
class table {
  public:
    explicit table(bool is_verbose) : is_verbose_(is_verbose) {}

    void add(const path& name, const open_reader& input)
    {
        const qrx_info& info = input.info;
        if (files_++ == 0) print_header();
        add_to(compressed_, info.file_size);
        add_to(original_, info.original_size);
        add_to(blocks_, info.block_count);
        add_to(stored_, info.stored_blocks);
        sealed_ += info.is_sealed;
        row line = sizes_row(info.file_size, info.original_size, info.block_count);
        line.cell = cell_text(input.params);
        line.seal = info.is_sealed != 0 ? "yes" : "no";
        line.stored = std::to_string(info.stored_blocks);
        line.block = size_text(info.block_size);
        line.filter = filter_name(input.params.filter);
        line.crc = info.is_sealed != 0 ? crc_text(info.seal) : "-";
        line.name = shown_name(name);
        print(line);
    }

    void print_totals() const
    {
        if (files_ < 2) return;
        row line = sizes_row(compressed_, original_, blocks_);
        line.seal = sealed_ == files_ ? "yes" : sealed_ == 0 ? "no" : "some";
        line.stored = std::to_string(stored_);
        line.name = std::to_string(files_) + " files";
        print(line);
    }

  private:
    struct row {
        std::string compressed, original, ratio, cell, blocks, seal, stored, block, filter, crc;
        std::string name;
    };

    /// Headers can claim sizes whose sum exceeds 64 bits.
    static void add_to(uint64_t& sum, uint64_t value)
    {
        sum = value > UINT64_MAX - sum ? UINT64_MAX : sum + value;
    }

    row sizes_row(uint64_t compressed, uint64_t original, uint64_t blocks) const
    {
        row line;
        line.compressed = is_verbose_ ? std::to_string(compressed) : size_text(compressed);
        line.original = is_verbose_ ? std::to_string(original) : size_text(original);
        line.ratio = ratio_text(compressed, original);
        line.blocks = std::to_string(blocks);
        return line;
    }

    void print_header() const
    {
        print({"Compressed", "Original", "Ratio", "Cell", "Blocks", "Sealed", "Stored", "Block",
               "Filter", "CRC-32", "Name"});
    }

    void print(const row& line) const
    {
        const int size_width = is_verbose_ ? 14 : 11;
        std::string text = field(line.compressed, size_width) + field(line.original, size_width) +
                           field(line.ratio, 6) + field(line.cell, 5) + field(line.blocks, 7) +
                           field(line.seal, 7);
        if (is_verbose_)
            text += field(line.stored, 7) + field(line.block, 10) + field(line.filter, 8) +
                    field(line.crc, 9);
        print_line(text + "  " + line.name);
    }

    /// Returns a text aligned to the right of a column, preceded by at least one space.
    static std::string field(const std::string& text, int width)
    {
        const auto size = static_cast<size_t>(width);
        return text.size() < size ? std::string(size - text.size(), ' ') + text : " " + text;
    }

    bool is_verbose_;
    uint64_t files_ = 0;
    uint64_t sealed_ = 0;
    uint64_t compressed_ = 0;
    uint64_t original_ = 0;
    uint64_t blocks_ = 0;
    uint64_t stored_ = 0;
};

int list_file(const session& run, const path& name, table& files)
{
    open_reader input;
    const int status = input.open(run, name, 0);
    if (status != exit_good) return status;
    add_layout_faults(input);
    if (run.settings.json)
        print_json(json_description("list", name, input));
    else
        files.add(name, input);
    report_faults(run, name, input);
    return exit_status_of(input.info.layout);
}

} // namespace

int run_list(const session& run)
{
    table files(run.settings.is_verbose());
    const int status = for_each_item(run, renaming::remove_suffix, [&](const work_item& item) {
        return list_file(run, item.source, files);
    });
    if (!run.settings.json) files.print_totals();
    return status;
}

} // namespace tool
