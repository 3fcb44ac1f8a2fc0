// pipeline/drivers.h - one file through the engine
#pragma once

#include "format/file_parameters.h"
#include "pipeline/engine.h"

namespace quarnex {

/// One file to compress or to restore.
struct file_names {
    const char* source;
    const char* destination; // created, or replaced if it exists
};

/// Compresses a file with settled parameters (pipeline/parameters.h).  If `classifies`, the kind of
/// the file sets its filter, and its literal context bits unless some are chosen.
///
/// With workers, blocks can still be in flight when it returns: what becomes of them shows in
/// engine::first_failure().  Every failure is told to the observer; a source that shrinks while it
/// is read is told and is none.
status compress_file(engine& with, const file_names& names, file_parameters parameters,
                     bool classifies = true);

/// Restores a file.  With workers, blocks can still be in flight when it returns, as above.
///
/// A source that ends between two records, or within the head of one, is no failure; nor is a block
/// of which a decoder has produced fewer bytes, which is told.  Once a worker or the writer has
/// failed, no further file is created: the result is status::stopped.
status decompress_file(engine& with, const file_names& names);

} // namespace quarnex
