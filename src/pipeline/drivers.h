// pipeline/drivers.h - one file through the pipeline
#pragma once

#include "pipeline/pipeline.h"

#include <string>

namespace quarnex {

/// Results of a driver besides the negative codes of report_error().
enum driver_result : i32 {
    driver_done = 0, // also when the file was skipped
    driver_failed = -1,
    driver_ends_run = -2, // the destination can't be created: the program ends with status -1
};

/// Compresses the file `source` into `destination` + ".qrx" with the parameters of `job_template`.
/// With workers, blocks can still be under way when it returns.
///
/// A source that is compressed already, by its name, is skipped.  Failures are told on standard
/// error or standard output.  Returns a driver_result or the negative code of a failure that
/// report_error() has told.
i32 compress_file(pipeline_state& state, const file_parameters& job_template,
                  const std::string& source, const std::string& destination);

/// Restores the file `source` to `destination` less its ".qrx", or with ".out" behind it.  With
/// workers, blocks can still be under way when it returns.
///
/// A source that ends between two records, or within the head of one, is no failure.  Other
/// failures are told on standard error or standard output.  Returns a driver_result or the negative
/// code of a failure that report_error() has told.
i32 decompress_file(pipeline_state& state, const std::string& source,
                    const std::string& destination);

} // namespace quarnex
