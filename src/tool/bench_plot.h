// tool/bench_plot.h - the results of bench as a picture
#pragma once

#include "tool/bench_measure.h"

namespace tool {

/// Returns an SVG document: a panel for each direction that plots speed (logarithmic) and ratio of
/// each result, with a line along the front.  `results` must not be empty.
std::string bench_svg(const std::string& title, const std::vector<bench_result>& results);

} // namespace tool
