// pipeline/driver_file.h - source and destination of a driver: opening, closing, reporting
#pragma once

#include "pipeline/drivers.h"

#include <utility>

namespace quarnex {

/// The two files of a driver, with the reports of their failures.
class driver_file {
  public:
    driver_file(engine& pipeline, const file_names& names, direction mode)
        : engine_(pipeline), names_(names), mode_(mode)
    {
    }
    /// Takes over the source and the destination of a small file, on a worker.
    driver_file(engine& pipeline, small_file& file)
        : engine_(pipeline), names_{file.out_file->source_name(), file.out_file->out_name()},
          mode_(file.mode), on_worker_(true), source_(std::move(file.source)),
          destination_(std::move(file.out_file))
    {
    }

    engine& pipeline() const { return engine_; }
    system_file& source() { return source_; }
    const output_ref& destination() const { return destination_; }

    /// Opens the source.
    status open_source();
    /// Creates the destination.  Returns status::skipped if the observer keeps the existing one.
    status create_destination();
    /// Closes the destination if the writer doesn't do so after its last block: without workers,
    /// and on a worker.
    status close_destination();
    /// Moves the source and the destination into `file`, whose other members are set, and submits
    /// it to the workers.  Returns false, with both still here, without workers or memory.
    [[nodiscard]] bool submit(small_file& file);

    /// Reports a failure, marks the destination (if created) as failed and returns `reason`.
    status fail(event happened, status reason);
    /// Reports a write error of the destination and returns status::write_failed.
    status fail_to_write(int cause);
    /// Reports a failure that needs no fields besides its kind.
    status fail(event_kind kind, status reason) { return fail(event{.kind = kind}, reason); }
    /// Reports an event that is not a failure.
    void tell(event happened) const;
    /// Reports progress; fails with status::cancelled if the observer cancels the file.
    status advance(u64 done, u64 total);

  private:
    engine& engine_;
    const file_names names_;
    const direction mode_;
    const bool on_worker_ = false;
    system_file source_;
    output_ref destination_;
};

} // namespace quarnex
