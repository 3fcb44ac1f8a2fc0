#include "pipeline/errors.h"

#include "common/platform.h"
#include "pipeline/progress.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace quarnex {

const std::array<const char*, 106> error_messages = [] {
    std::array<const char*, 106> table{};
    table[error_no_memory] = "malloc error";
    table[error_open] = "cannot open file '%s'";
    table[error_write] = "write error. errno=%d '%s'";
    table[error_read] = "read error. errno=%d '%s'";
    table[error_no_header] = "file header. no quarnex format";
    table[error_corrupted] = "file is corrupted";
    return table;
}();

i32 (*error_handler)(i32 code, const char* text) = print_error;
void (*fatal_error_handler)(i32 code, const char* text) = end_process;

i32 print_error(i32 code, const char* text)
{
    std::printf("Error: %d %s\n", code, text);
    return 0;
}

void end_process(i32 code, const char* text)
{
    hide_progress();
    std::fflush(stdout);
    std::fprintf(stderr, "quarnex: error %d: %s\n", code, text);
    end_abnormally();
}

i32 report_error(error_code code, const char* format, ...)
{
    std::array<char, 2048> text;
    std::va_list arguments;
    va_start(arguments, format);
    const char* const used_format =
        format != nullptr ? format : error_messages[static_cast<usize>(code)];
    std::vsnprintf(text.data(), text.size(), used_format, arguments);
    va_end(arguments);

    if (format == nullptr) {
        fatal_error_handler(code, text.data());
    } else {
        std::printf("message:%s;'%s'", format, text.data());
        error_handler(code, text.data());
    }
    return -code;
}

i32 report_fatal(error_code code)
{
    // The slot at code - 100, which is empty: an empty format is what ends the process.
    const char* const format = error_messages[static_cast<usize>(code - first_error_code)];
    return report_error(code, format, errno, std::strerror(errno));
}

} // namespace quarnex
