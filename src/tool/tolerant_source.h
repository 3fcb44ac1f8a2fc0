// tool/tolerant_source.h - reads a file with bad sectors
#pragma once

#include "tool/options.h"

#include <map>

namespace tool {

/// An input whose unreadable parts are read as zeros.  A failed read is repeated page by page.
/// Pages that fail are not tried again, since each attempt can take seconds on a failing disk.
class tolerant_source {
  public:
    /// `inner` is the file itself; its context must outlive this object.
    explicit tolerant_source(const qrx_source& inner) : inner_(inner) {}
    tolerant_source(const tolerant_source&) = delete;
    tolerant_source& operator=(const tolerant_source&) = delete;

    /// The input for the library; valid as long as this object.
    qrx_source source();

    /// Reads like qrx_source::read.  Fails only if memory runs out.
    int read(uint64_t offset, char* dest, size_t size, size_t& got);

    /// Returns the first unreadable part within `range`, as far as it has been read; empty, at the
    /// end of `range`, if there is none.
    byte_range first_unreadable(const byte_range& range) const;

    bool has_unreadable() const { return !unreadable_.empty(); }

  private:
    int read_page(uint64_t offset, char* dest, size_t size, size_t& got);

    qrx_source inner_;
    std::map<uint64_t, uint64_t> unreadable_; // start and end of each part; they do not overlap
};

} // namespace tool
