// pipeline/driver_file.h - source and destination of a driver: opening, closing, reporting
#pragma once

#include "pipeline/drivers.h"

namespace quarnex {

/// The two files of a driver, with the reports of their failures.
class driver_file {
  public:
    driver_file(engine& pipeline, const file_names& names, direction mode)
        : engine_(pipeline), names_(names), mode_(mode)
    {
    }

    engine& pipeline() const { return engine_; }
    system_file& source() { return source_; }
    const output_ref& destination() const { return destination_; }

    /// Opens the source.
    status open_source();
    /// Creates the destination.  Returns status::skipped if the observer keeps the existing one.
    status create_destination();
    /// Closes the destination if there are no workers.  (With workers the writer closes it after
    /// its last block, or a worker if the file is small.)  `records` of `block_count` were
    /// submitted.
    status close_destination(u32 records, u32 block_count);

    /// Reports a failure, marks the destination (if created) as failed and returns `reason`.  First
    /// waits for the small files submitted earlier, since the observer may end the process.
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
    system_file source_;
    output_ref destination_;
};

} // namespace quarnex
