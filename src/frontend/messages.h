// frontend/messages.h - prints the engine's events and ends the process for fatal ones
#pragma once

#include "pipeline/events.h"

namespace quarnex {

/// Codes of the failures that end the process.
enum error_code : i32 {
    error_no_memory = 100,
    error_write = 102,
    error_read = 103,
    error_no_header = 104,
    error_corrupted = 105,
};

/// Prints the message of an event, on the thread that met it.  A failure with a code ends the
/// process abnormally, after flushing standard output and printing a line with the file name, the
/// code and its text on standard error.  event_kind::too_many_destinations ends the process with
/// status -1.
///
/// For observer::tell; ignores `context`.
void report_event(void* context, const event& happened);

/// A std::new_handler: ends the process as failure 100 does, but names no file.  For memory that
/// belongs to no file, such as that of names.
[[noreturn]] void abort_out_of_memory();

} // namespace quarnex
