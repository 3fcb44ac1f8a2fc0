// frontend/options.h - parses the command line
#pragma once

#include "format/file_parameters.h"
#include "pipeline/events.h"

#include <string>
#include <vector>

namespace quarnex {

/// Why a command line is rejected.
enum class option_fault {
    none,
    usage, // the usage text was requested, or names or the method are missing
    unknown_option,
    unknown_level,
    bad_value, // an option's value is out of range
};

/// The parsed command line.
struct options {
    option_fault fault = option_fault::none;
    std::string fault_text; // the argument or the message that describes the fault
    direction mode = direction::compress;
    file_parameters job_template;
    u32 thread_count = 0;
    i32 verbose = 0;
    bool recursive = false;
    std::vector<std::string> names; // the inputs
    std::string destination;
};

/// Returns the program's name without its path.
std::string tool_name(const char* path);

/// Parses the program's arguments; argv[0] is the program's name.  `processors` is the default
/// number of workers.
///
/// Parsing stops at the first argument with a fault; only `fault` and `fault_text` are then valid.
options parse_options(int argc, const char* const* argv, u32 processors);

/// Prints the usage text on standard error.
void print_usage(const std::string& tool);

} // namespace quarnex
