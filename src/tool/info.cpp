// Prints all details of files, with a map of their blocks.
#include "tool/block_map.h"
#include "tool/commands.h"
#include "tool/describe.h"
#include "tool/targets.h"

#include <algorithm>

namespace tool {
namespace {

class description {
  public:
    description(const session& run, const path& name) : run_(run), name_(name) {}

    int run()
    {
        const int status = input_.open(run_, name_, 0);
        if (status != exit_good) return status;
        result_ = input_.info.layout;
        if (run_.settings.tests_blocks)
            test();
        else
            add_layout_faults(input_);
        if (exit_status_of(result_) == exit_failed) {
            run_.messages.error(name_, failure_text(result_, input_.watcher, input_.info));
            return exit_failed;
        }
        if (run_.settings.json)
            print_object();
        else
            print_text();
        report_faults(run_, name_, input_);
        return exit_status_of(result_);
    }

  private:
    void test()
    {
        run_.progress.start(name_, input_.info.original_size, input_.info.file_size);
        result_ = qrx_reader_test(input_.reader.get());
        run_.progress.end();
    }

    void print_object() const
    {
        json object = json_description("info", name_, input_);
        object["hash_bits"] = input_.params.hash_bits;
        object["chain_bits"] = input_.params.chain_bits;
        object["tested"] = run_.settings.tests_blocks;
        json map = json::array();
        for (const block_run& part : block_runs(input_)) {
            map.push_back({{"state", state_name(part.state)},
                           {"first_block", part.first},
                           {"blocks", part.count},
                           {"first", start_of(part.first, input_.info)},
                           {"last", start_of(part.first + part.count, input_.info)},
                           {"payload_size", part.payload_size}});
        }
        object["map"] = std::move(map);
        print_json(object);
    }

    void print_text() const
    {
        print_line(shown_name(name_));
        print_sizes();
        print_parameters();
        print_blocks();
        print_map();
    }

    static void print_field(const char* label, const std::string& text)
    {
        std::string line = "  " + std::string(label);
        line.resize(16, ' ');
        print_line(line + text);
    }

    static std::string exact_size_text(uint64_t bytes)
    {
        const std::string exact = std::to_string(bytes) + " bytes";
        return bytes < 1000 ? exact : exact + " (" + size_text(bytes) + ")";
    }

    void print_sizes() const
    {
        const qrx_info& info = input_.info;
        print_field("compressed", exact_size_text(info.file_size));
        print_field("original", exact_size_text(info.original_size));
        print_field("ratio", ratio_text(info.file_size, info.original_size));
    }

    void print_parameters() const
    {
        const qrx_params& params = input_.params;
        const auto number = [](uint32_t value) { return std::to_string(value); };
        print_field("method", number(params.method) + ": " + method_name(params.method));
        print_field("level", number(params.level) + ": " + level_name(params.level));
        print_field("context bits", number(params.context_bits));
        print_field("filter", filter_name(params.filter));
        print_field("hash bits", number(params.hash_bits));
        print_field("chain bits", number(params.chain_bits));
    }

    void print_blocks() const
    {
        const qrx_info& info = input_.info;
        print_field("block size", exact_size_text(info.block_size));
        print_field("blocks", std::to_string(info.block_count) + ", " +
                                  std::to_string(info.stored_blocks) + " of them stored, " +
                                  std::to_string(info.block_count - info.blocks_found) +
                                  " missing");
        print_field("seal", info.is_sealed != 0 ? "CRC-32 " + crc_text(info.seal) : "not sealed");
        print_field("layout", info.layout == QRX_OK ? "good" : qrx_status_text(info.layout));
        if (run_.settings.tests_blocks)
            print_field("test", result_ != QRX_OK     ? qrx_status_text(result_)
                                : info.is_sealed != 0 ? "good"
                                                      : "not sealed; no damage noticed");
    }

    void print_map() const
    {
        const block_map map = draw_map(block_runs(input_));
        if (map.lines.empty()) return;
        std::string legend = "# compressed, = stored, . missing";
        if (run_.settings.tests_blocks || !input_.watcher.events.empty()) legend += ", ! damaged";
        print_field("map", legend);
        if (map.scale > 1)
            print_field("", "one character for " + std::to_string(map.scale) +
                                " blocks: their worst state");
        if (std::find(map.lines.begin(), map.lines.end(), "*") != map.lines.end())
            print_field("", "* repeats the line above");
        for (const std::string& line : map.lines) print_line(line);
    }

    const session& run_;
    const path& name_;
    open_reader input_;
    qrx_status result_ = QRX_OK;
};

} // namespace

int run_info(const session& run)
{
    return for_each_item(run, renaming::remove_suffix, [&](const work_item& item) {
        return description(run, item.source).run();
    });
}

} // namespace tool
