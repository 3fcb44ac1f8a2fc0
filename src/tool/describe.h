// tool/describe.h - what list, info and verify say about an open file
#pragma once

#include "tool/json.h"

namespace tool {

/// Returns the entropy coder of a method.
const char* method_name(uint32_t method);

/// Returns the match finder and the parse of a level.
const char* level_name(uint32_t level);

/// Returns a name for QRX_FILTER_...
const char* filter_name(uint32_t filter);

/// Returns the option that selects a cell, such as "-33".
std::string cell_text(const qrx_params& params);

/// Returns compressed / original with three decimals; "-" for an empty original.
std::string ratio_text(uint64_t compressed, uint64_t original);

/// Returns a CRC-32 as eight hexadecimal digits.
std::string crc_text(uint32_t crc);

/// Returns the name of an input as shown on standard output.
std::string shown_name(const path& name);

/// Adds the faults of the layout to the events of `input`, since opening a file doesn't report
/// them: the first fault, and the blocks without a record.
void add_layout_faults(open_reader& input);

/// Prints the faults of a file on standard error; without -v, only the first ones and the number of
/// the others.
void report_faults(const session& run, const path& name, const open_reader& input);

json json_faults(const open_reader& input);

/// Returns the members that all JSON objects describing a file have.
json json_description(const char* command, const path& name, const open_reader& input);

} // namespace tool
