// tool/json.h - JSON on standard output: one object per file, each on its own line
#pragma once

#include "tool/library.h"

#include <nlohmann/json.hpp>

namespace tool {

using json = nlohmann::ordered_json;

/// Returns an object as one line of ASCII.
std::string json_line(const json& object);

/// Prints an object as one line.
void print_json(const json& object);

/// Returns the name of a file; bytes that aren't UTF-8 are printed as U+FFFD.
std::string json_name(const path& name);

/// Describes a fault: what, and where in the original.
json json_fault(const qrx_event& fault, const qrx_info& info);

/// Returns compressed / original; null for an empty original.
json json_ratio(uint64_t compressed, uint64_t original);

} // namespace tool
