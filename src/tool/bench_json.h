// tool/bench_json.h - the results of bench as JSON
#pragma once

#include "tool/bench_measure.h"
#include "tool/json.h"

namespace tool {

/// Describes the results of all cells for one file.
json bench_object(const bench_plan& plan, const bench_file& file,
                  const std::vector<bench_result>& results);

} // namespace tool
