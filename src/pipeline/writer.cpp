#include "pipeline/block_coder.h"
#include "pipeline/errors.h"
#include "pipeline/output_file.h"
#include "pipeline/pipeline.h"
#include "pipeline/progress.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <utility>

namespace quarnex {
namespace {

/// A file of which records have been written, and more are to come.
struct open_file {
    std::shared_ptr<output_file> out_file;
    u32 written = 0; // records so far
};

using open_file_table = std::array<open_file, 256>;

[[noreturn]] void end_for_lack_of_entries(const output_file& file)
{
    const auto value = static_cast<u32>(reinterpret_cast<std::uintptr_t>(file.stream_address()));
    hide_progress();
    std::printf("Fatal error file dscriptor > %d.fd=%x\n",
                static_cast<int>(std::tuple_size_v<open_file_table>), value);
    std::fflush(stdout);
    std::exit(-1);
}

/// The entry of a file, a new one if it has none.  Without a free entry the process ends.
open_file& find_entry(open_file_table& table, const std::shared_ptr<output_file>& file)
{
    open_file* free_entry = nullptr;
    for (open_file& entry : table) {
        if (entry.out_file == file) return entry;
        if (!entry.out_file && free_entry == nullptr) free_entry = &entry;
    }
    if (free_entry == nullptr) end_for_lack_of_entries(*file);
    *free_entry = {file, 0};
    return *free_entry;
}

/// Writes a block, and closes its file behind the last one.
bool write_and_close(open_file_table& table, write_job& finished)
{
    open_file& entry = find_entry(table, finished.out_file);
    const u32 sequence = entry.written++;
    if (!write_block(finished, sequence)) return false;
    if (entry.written < finished.block_count) return true;
    entry = {};
    return finished.out_file->close();
}

} // namespace

void run_writer(pipeline_state& state)
{
    // A file whose blocks went astray stays here, open, until the end.
    const auto table = std::make_unique<open_file_table>();
    bool failed = false;
    for (;;) {
        write_job finished = state.writes.dequeue();
        if (!finished.buf) return;
        if (!failed && !write_and_close(*table, finished)) {
            failed = true;
            ++state.abort_count;
            report_fatal(error_write);
        }
        const direction mode = finished.block_mb == 0 ? direction::compress : direction::decompress;
        state.settle(*finished.out_file, finished.block_index, mode);
    }
}

} // namespace quarnex
