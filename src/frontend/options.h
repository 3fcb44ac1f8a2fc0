// frontend/options.h - the command line
#pragma once

#include "format/file_parameters.h"
#include "pipeline/events.h"

#include <string>
#include <vector>

namespace quarnex {

/// Why a command line can't be carried out.
enum class option_fault {
    none,
    usage, // the usage text was asked for, or is all there is to say
    unknown_option,
    unknown_level,
    bad_value, // an option has a value that no run can have
};

/// What the command line says.
struct options {
    option_fault fault = option_fault::none;
    std::string fault_text; // the argument or the sentence that tells of the fault
    direction mode = direction::compress;
    file_parameters job_template;
    u32 thread_count = 0;
    i32 verbose = 0;
    bool recursive = false;
    std::vector<std::string> names; // all inputs
    std::string destination;
};

/// The program's name without its path.
std::string tool_name(const char* path);

/// Reads the arguments of the program, with its own name as the first.  `processors` is the number
/// of workers where nothing else is said.
///
/// Parsing stops at the first argument that ends the run by itself; the rest of the record is then
/// not to be used.
options parse_options(int argc, const char* const* argv, u32 processors);

/// Prints the usage text on standard error.
void print_usage(const std::string& tool);

} // namespace quarnex
