// pipeline/drivers.h - compresses or restores one file
#pragma once

#include "format/file_parameters.h"
#include "pipeline/engine.h"

namespace quarnex {

/// One file to compress or to restore.
struct file_names {
    const char* source;
    const char* destination; // created, or replaced if it exists
};

/// Compresses a file with settled parameters (pipeline/parameters.h).  If `classifies`, the file
/// type selects the filter, and also the literal context bits unless the parameters set them.
///
/// With workers, blocks or the whole file, if it is small, can still be in flight on return;
/// engine::first_failure() shows their failures.  Every failure except a cancellation is reported
/// to the observer.  A source that shrinks while it is read is reported too, but is not a failure.
///
/// Returns status::skipped, with both files unchanged, if the observer keeps an existing
/// destination.
status compress_file(engine& pipeline, const file_names& names, file_parameters parameters,
                     bool classifies = true);

/// Restores a file.  With workers, blocks can still be in flight on return, as for compress_file().
///
/// A source that ends between two records or within a record head is not a failure.  A block that
/// decodes to fewer bytes than expected is reported but is not a failure either.  Once a worker or
/// the writer has failed, reading stops and no further destination is created: the result is
/// status::stopped.  It can also be status::skipped, as for compress_file().
status decompress_file(engine& pipeline, const file_names& names);

} // namespace quarnex
