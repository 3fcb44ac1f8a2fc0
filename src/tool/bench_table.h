// tool/bench_table.h - the results of bench as text
#pragma once

#include "tool/bench_measure.h"

namespace tool {

/// Returns the name of the only file, or the number of files.
std::string files_text(const std::vector<bench_file>& files);

/// Returns a line about what is measured, and the column heads.
std::string table_head(const bench_plan& plan, const std::vector<bench_file>& files);

/// Returns a row of the table.
std::string table_row(const bench_result& result, bool on_front);

/// Returns the presets of a cell, such as "-5"; empty if there are none.
std::string presets_of(int cell);

} // namespace tool
