#include "frontend/messages.h"

#include "frontend/progress.h"
#include "frontend/system.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quarnex {
namespace {

/// Prints on standard output and flushes it.
[[gnu::format(printf, 1, 2)]] void say(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout);
}

/// Ends the process because of failure `code` of the file `name`, with the formatted text.
[[noreturn, gnu::format(printf, 3, 4)]] void abort_with(const char* name, error_code code,
                                                        const char* format, ...)
{
    std::array<char, 512> text;
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    std::fflush(stdout);
    // One call, so that the lines of two threads don't mix.
    std::fprintf(stderr, "quarnex: %s: error %d: %s\n", name, static_cast<int>(code), text.data());
    end_abnormally();
}

[[noreturn]] void abort_on_read_error(const event& happened)
{
    abort_with(happened.name, error_read, "read error. errno=%d '%s'", happened.cause,
               std::strerror(happened.cause));
}

/// Reports that a codec had no memory.  Missing match lists end the process; any other lack
/// fails only the file.
void report_uncoded(const event& happened)
{
    if (happened.codec_error == codec_status::no_lists)
        abort_with(happened.name, error_no_memory, "malloc error");
    if (happened.codec_error == codec_status::no_table)
        say(happened.on_worker ? "error compressing\n" : "compression error\n");
    std::fprintf(stderr, "%s: not enough memory for block %u\n", happened.name, happened.block);
}

} // namespace

void report_event(void* /*context*/, const event& happened)
{
    const char* const cause = std::strerror(happened.cause);
    hide_progress();
    switch (happened.kind) {
    case event_kind::source_unopened:
        std::fprintf(stderr, "can't open input file '%s'. '%s'\n", happened.name, cause);
        break;
    case event_kind::source_unread:
        std::fprintf(stderr, "can't read input file '%s'. '%s'\n", happened.name, cause);
        break;
    case event_kind::source_shrank:
        std::fprintf(stderr, "input file '%s' has become shorter\n", happened.name);
        break;
    case event_kind::destination_uncreated:
        std::fprintf(stderr, "creat error '%s' '%s'\n", happened.name, cause);
        break;
    case event_kind::destination_unwritten:
        abort_with(happened.name, error_write, "write error. errno=%d '%s'", happened.cause, cause);
    case event_kind::too_many_destinations:
        say("Fatal error file dscriptor > %d.fd=%x\n", static_cast<int>(happened.wanted),
            static_cast<unsigned>(happened.got));
        std::fprintf(stderr, "%s: too many files are open\n", happened.name);
        std::exit(-1);
    case event_kind::thread_unstarted:
        say("Error thread_create.\n");
        break;
    case event_kind::header_short:
        abort_on_read_error(happened);
    case event_kind::not_qrx:
        say("'%s' not qrx file\n", happened.name);
        abort_with(happened.name, error_no_header, "file header. no quarnex format");
    case event_kind::corrupt:
        abort_with(happened.name, error_corrupted, "file is corrupted");
    case event_kind::payload_short:
        say("err=%s, %d,%d ", happened.cause != 0 ? cause : "", static_cast<i32>(happened.wanted),
            static_cast<i32>(happened.got));
        abort_on_read_error(happened);
    case event_kind::block_short:
        say("Fatal Error in decomp '%s'.%d,%d\n", happened.name, static_cast<i32>(happened.got),
            static_cast<i32>(happened.wanted));
        break;
    case event_kind::block_uncoded:
        report_uncoded(happened);
        break;
    case event_kind::no_memory:
        abort_with(happened.name, error_no_memory, "malloc error");
    }
}

void abort_out_of_memory()
{
    hide_progress();
    std::fflush(stdout);
    std::fprintf(stderr, "quarnex: error %d: malloc error\n", static_cast<int>(error_no_memory));
    end_abnormally();
}

} // namespace quarnex
