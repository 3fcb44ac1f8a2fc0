#include "pipeline/engine.h"

#include <utility>

namespace quarnex {
namespace {

/// The files that are partly written.
class open_file_table {
  public:
    struct entry {
        output_ref out_file;
        u32 written = 0; // records written so far
    };

    /// Returns the entry of `file`, adding one if needed; null if the table is full.
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

    /// Frees the entry of a file, if it has one.
    void remove(const output_ref& file)
    {
        for (entry& each : entries_) {
            if (each.out_file == file) each = {};
        }
    }

  private:
    std::array<entry, max_destinations> entries_;
};

/// Writes a block and closes its file after the last one.  Reports failures.
status write_and_close(const engine& pipeline, open_file_table& table, write_job& finished)
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
        failure.wanted = max_destinations;
        failure.got = static_cast<u64>(file.file.descriptor());
        pipeline.tell(failure);
        return status::too_many_files;
    }
    failure.cause = write_block(finished, entry->written++);
    if (failure.cause == 0 && entry->written >= finished.block_count) {
        *entry = {};
        failure.cause = file.file.close();
    }
    if (failure.cause == 0) return status::done;
    pipeline.tell(failure);
    return status::write_failed;
}

} // namespace

void run_writer(engine& pipeline)
{
    // A file that ends early stays open in the table until the writer ends.
    open_file_table table;
    for (;;) {
        write_job finished = pipeline.writes.dequeue();
        if (!finished.buf) return;
        output_file& file = *finished.out_file;
        if (!file.failed()) {
            const status written = write_and_close(pipeline, table, finished);
            if (written != status::done) pipeline.fail_on_thread(file, written);
        }
        if (file.failed()) table.remove(finished.out_file);
        finished.buf.reset(); // before a driver that waits for the block takes its next buffer
        pipeline.mark_done(std::move(finished.out_file), finished.block_index, finished.mode);
    }
}

} // namespace quarnex
