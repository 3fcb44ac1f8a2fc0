#include "pipeline/engine.h"

#include <utility>

namespace quarnex {
namespace {

/// The files of which records have been written and more are to come.
class open_file_table {
  public:
    static constexpr usize max_files = 256;

    struct entry {
        output_ref out_file;
        u32 written = 0; // records so far
    };

    /// Returns the entry of a file, a new one if it has none; null without a free one.
    entry* find(const output_ref& file)
    {
        entry* free_entry = nullptr;
        for (entry& each : entries_) {
            if (each.out_file == file) return &each;
            if (!each.out_file && free_entry == nullptr) free_entry = &each;
        }
        if (free_entry != nullptr) *free_entry = {file, 0};
        return free_entry;
    }

  private:
    std::array<entry, max_files> entries_;
};

/// Writes a block, and closes its file after the last one.  Tells what goes wrong.
status write_and_close(const engine& of, open_file_table& table, write_job& finished)
{
    output_file& file = *finished.out_file;
    event failure{.kind = event_kind::destination_unwritten,
                  .name = file.out_name(),
                  .block = finished.block_index,
                  .mode = finished.mode,
                  .on_worker = true};
    open_file_table::entry* const entry = table.find(finished.out_file);
    if (entry == nullptr) {
        failure.kind = event_kind::too_many_destinations;
        failure.wanted = open_file_table::max_files;
        failure.got = static_cast<u64>(file.file.descriptor());
        of.tell(failure);
        return status::too_many_files;
    }
    failure.cause = write_block(finished, entry->written++);
    if (failure.cause == 0 && entry->written >= finished.block_count) {
        *entry = {};
        failure.cause = file.file.close();
    }
    if (failure.cause == 0) return status::done;
    of.tell(failure);
    return status::write_failed;
}

} // namespace

void run_writer(engine& of)
{
    // A file whose blocks never all came stays here, open, until the end.
    open_file_table table;
    for (;;) {
        write_job finished = of.writes.dequeue();
        if (!finished.buf) return;
        output_file& file = *finished.out_file;
        if (!file.failed()) {
            const status written = write_and_close(of, table, finished);
            if (written != status::done) of.fail_on_thread(file, written);
        }
        of.mark_done(file, finished.block_index, finished.mode);
    }
}

} // namespace quarnex
