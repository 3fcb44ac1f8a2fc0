// pipeline/errors.h - failures that carry a code
#pragma once

#include "common/types.h"

#include <array>

namespace quarnex {

enum error_code : i32 {
    error_no_memory = 100,
    error_open = 101,
    error_write = 102,
    error_read = 103,
    error_no_header = 104,
    error_corrupted = 105,
};

/// The code of the first text that is not empty.
inline constexpr i32 first_error_code = 100;

/// Texts by code; null below first_error_code.
extern const std::array<const char*, 106> error_messages;

/// Prints "Error: %d %s\n" on standard output.  Returns 0.
i32 print_error(i32 code, const char* text);

/// Called by report_error() with the code and the formatted text.
extern i32 (*error_handler)(i32 code, const char* text);

/// Flushes standard output, writes a line with the code and its text on standard error and ends
/// the process abnormally.
[[noreturn]] void end_process(i32 code, const char* text);

/// Called by report_error() for a failure that ends the process; end_process() unless a test puts
/// itself in its place.
extern void (*fatal_error_handler)(i32 code, const char* text);

/// Reports the failure `code` (100 to 105).
///
/// With a format: prints it, formatted, on standard output, and calls `error_handler`.  With a null
/// format: formats the code's own text and calls `fatal_error_handler`, which doesn't come back.
/// The further arguments are those of the format, or of the code's text.  Texts are cut at 2047
/// bytes.  Returns -code.
i32 report_error(error_code code, const char* format, ...);

/// Reports the failure `code` (any but error_open) as the drivers and the threads do, with the
/// empty format: the process ends.  Read and write errors tell what `errno` says.
i32 report_fatal(error_code code);

} // namespace quarnex
