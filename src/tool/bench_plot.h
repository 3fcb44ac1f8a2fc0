// tool/bench_plot.h - the results of bench as a picture
#pragma once

#include "tool/bench_measure.h"

namespace tool {

/// Returns an SVG document: a panel for each direction, with speed (logarithmic) and ratio of each
/// result, and a line along the front.  `results` isn't empty.
std::string bench_svg(const std::string& title, const std::vector<bench_result>& results);

} // namespace tool
