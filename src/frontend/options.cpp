#include "frontend/options.h"

#include "frontend/path.h"
#include "pipeline/engine.h"
#include "pipeline/parameters.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

namespace quarnex {
namespace {

constexpr u8 default_level = 9;
constexpr i32 max_block_mb = 2047; // some block lengths are signed 32-bit
constexpr i32 max_hash_bits = 30;

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

/// Returns the decimal number at `text`, clamped to the range of i32; 0 if there is none.
i32 number_at(const char* text)
{
    const long long value = std::strtoll(text, nullptr, 10);
    return static_cast<i32>(std::clamp<long long>(value, std::numeric_limits<i32>::min(),
                                                  std::numeric_limits<i32>::max()));
}

/// Parses "-ml": a method digit and an optional level digit.
void parse_method(const char* argument, options& parsed)
{
    parsed.job_template.codec.method = static_cast<u8>(argument[1] - '0');
    const char level = argument[2];
    if (level == '\0') {
        parsed.job_template.codec.level = default_level;
    } else if (is_digit(level)) {
        parsed.job_template.codec.level = static_cast<u8>(level - '0');
    } else {
        parsed.fault = option_fault::unknown_level;
    }
}

/// Parses one option for compression.
void parse_compress_option(const char* argument, u32 processors, options& parsed)
{
    const char* const value = argument + 2;
    if (is_digit(argument[1])) {
        parse_method(argument, parsed);
        return;
    }
    switch (argument[1]) {
    case 'D':
        parsed.job_template.codec.hash_bits = number_at(value);
        break;
    case 'b':
        parsed.job_template.block_mb = static_cast<u16>(number_at(value));
        break;
    case 'h':
        parsed.fault = option_fault::usage;
        break;
    case 'p':
        parsed.thread_count = std::min(static_cast<u32>(number_at(value)), processors);
        break;
    case 'r':
        parsed.recursive = true;
        break;
    case 'v':
        ++parsed.verbose;
        break;
    default:
        parsed.fault = option_fault::unknown_option;
        parsed.fault_text = argument;
    }
}

/// Parses one option after "-d".  Unknown options are ignored.
void parse_decompress_option(const char* argument, options& parsed)
{
    switch (argument[1]) {
    case 'p':
        parsed.thread_count = static_cast<u32>(number_at(argument + 2));
        break;
    case 'r':
        parsed.recursive = true;
        break;
    case 'v':
        ++parsed.verbose;
        break;
    default:
        break;
    }
}

void refuse(options& parsed, std::string text)
{
    parsed.fault = option_fault::bad_value;
    parsed.fault_text = std::move(text);
}

/// Checks the ranges of the values in a well-formed command line.
void check_values(options& parsed)
{
    const file_parameters& parameters = parsed.job_template;
    if (parsed.mode == direction::decompress) return;
    if (parameters.block_mb == 0 || parameters.block_mb > max_block_mb) {
        refuse(parsed, "the block size (-b) must be 1 to " + std::to_string(max_block_mb) + " MiB");
    } else if (parameters.codec.hash_bits > max_hash_bits) {
        refuse(parsed, "the hash size (-D) must be at most " + std::to_string(max_hash_bits));
    }
}

} // namespace

std::string tool_name(const char* path)
{
    const std::string name = path;
    return name.substr(last_component(name));
}

options parse_options(int argc, const char* const* argv, u32 processors)
{
    options parsed;
    parsed.thread_count = processors;
    const bool dash_d = argc > 1 && std::string(argv[1]) == "-d";
    for (int i = 1; i < argc && parsed.fault == option_fault::none; ++i) {
        if (argv[i][0] != '-')
            parsed.names.emplace_back(argv[i]);
        else if (dash_d)
            parse_decompress_option(argv[i], parsed);
        else
            parse_compress_option(argv[i], processors, parsed);
    }
    if (parsed.fault != option_fault::none) return parsed;

    const bool named_unquarnex =
        argc > 0 && tool_name(argv[0]).find("unquarnex") != std::string::npos;
    if (dash_d || named_unquarnex) parsed.mode = direction::decompress;
    parsed.thread_count = std::min(parsed.thread_count, max_workers);
    const bool compress = parsed.mode == direction::compress;
    if (parsed.names.size() < 2 || (compress && !is_method(parsed.job_template.codec.method))) {
        parsed.fault = option_fault::usage;
        return parsed;
    }
    cap_block_size(parsed.job_template);
    check_values(parsed);
    parsed.destination = std::move(parsed.names.back());
    parsed.names.pop_back();
    return parsed;
}

void print_usage(const std::string& tool)
{
    std::fprintf(stderr, "\n%s " QUARNEX_VERSION " " QUARNEX_DATE "\n", tool.c_str());
    std::fprintf(stderr, "\n Usage: %s <options> <filename1> .. <filenameN> DESTINATION_DIR\n",
                 tool.c_str());
    std::fputs(
        "<options>\n"
        " -ml     m: compression method (1..5), l:compression level (0..9).\n"
        " -p#     #: number of processors/cores (default=autodetect). 0=disable multithreading\n"
        " -b#     #: block size in mb (default 32)\n"
        " -r      compress/decompress directories recursively\n"
        " -d      decompress\n"
        "Ex.: quarnex -43 file.jpg ab*.txt backup_dir\n",
        stderr);
    std::fprintf(stderr, "     quarnex -59 -r mydir%c* backup_dir\n", path_separator);
    std::fprintf(stderr, "     quarnex -d -r backup_dir%c* restore_dir\n", path_separator);
}

} // namespace quarnex
