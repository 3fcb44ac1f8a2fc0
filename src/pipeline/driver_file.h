// pipeline/driver_file.h - what both drivers do with their two files
#pragma once

#include "pipeline/drivers.h"

namespace quarnex {

/// The two files of a driver, and how it tells of them.
class driver_file {
  public:
    driver_file(engine& with, const file_names& names, direction mode)
        : engine_(with), names_(names), mode_(mode)
    {
    }

    engine& with() const { return engine_; }
    system_file& source() { return source_; }
    const output_ref& destination() const { return destination_; }

    /// Opens the source.
    status open_source();
    /// Creates the destination.
    status create_destination();
    /// Without workers closes the destination.  (With workers the writer closes it after its last
    /// block.)
    status close_destination();

    /// Tells of a failure of the source, and returns `reason`.
    status fail(event happened, status reason);
    /// Tells that the destination can't be written, and returns that.
    status fail_to_write(int cause);
    /// A failure of `kind` with nothing else to tell.
    status fail(event_kind kind, status reason) { return fail(event{.kind = kind}, reason); }
    /// Tells of what is no failure.
    void tell(event happened) const;
    /// Cancels the file if the observer wants it.
    status advance(u64 done, u64 total);

  private:
    engine& engine_;
    const file_names names_;
    const direction mode_;
    system_file source_;
    output_ref destination_;
};

} // namespace quarnex
