// frontend/messages.h - what the program says of the engine's events, and when it ends for one
#pragma once

#include "pipeline/events.h"

namespace quarnex {

/// Codes of the failures that end the program.
enum error_code : i32 {
    error_no_memory = 100,
    error_write = 102,
    error_read = 103,
    error_no_header = 104,
    error_corrupted = 105,
};

/// Prints what an event calls for, on the thread that met it.  A failure with a code ends the
/// process abnormally: standard output is flushed, and standard error gets a line with the name of
/// the file, the code and its text.  Too many open destinations end it with status -1.
///
/// An observer's tell(); needs no context.
void report_event(void* context, const event& happened);

} // namespace quarnex
