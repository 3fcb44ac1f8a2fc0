// tool/bench_front.h - the Pareto front of speed and size
#pragma once

#include "tool/bench_measure.h"

namespace tool {

/// Speed in one direction: &bench_result::compress_mb_s or &bench_result::decompress_mb_s.
using bench_speed = double (bench_result::*)() const;

/// Returns for each result whether it is on the front of `speed` and compressed size: no other
/// result is at least as good in both and better in one.
std::vector<bool> front_of(const std::vector<bench_result>& results, bench_speed speed);

/// Returns the indices of the results on the front, fastest first.
std::vector<size_t> front_order(const std::vector<bench_result>& results, bench_speed speed);

} // namespace tool
