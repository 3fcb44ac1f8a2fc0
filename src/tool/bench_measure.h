// tool/bench_measure.h - times compression and decompression of files in memory
#pragma once

#include "tool/library.h"

#include <string>
#include <vector>

namespace tool {

/// A file to measure with.
struct bench_file {
    path name;
    std::vector<char> content; // not empty
};

/// How to measure.
struct bench_plan {
    uint32_t block_mib = 0; // 0: 32, at most 16 at levels 4 to 7
    uint32_t threads = 1;
    double min_seconds = 0; // spent on repetitions, for each file and direction
};

/// The results of a cell for a file, or for several.
struct bench_result {
    int cell = 0; // method and level, two digits
    uint32_t block_mib = 0;
    uint64_t original_size = 0;
    uint64_t compressed_size = 0;  // of the .qrx files, with headers and seals
    double compress_seconds = 0;   // of the fastest repetition
    double decompress_seconds = 0; // likewise
    uint64_t compress_memory = 0;  // that `qrx -T THREADS` may allocate
    uint64_t decompress_memory = 0;

    double ratio() const;
    double compress_mb_s() const; // megabytes (1e6) of the original per second
    double decompress_mb_s() const;
};

/// Returns the sum of the results of one cell for several files.
bench_result sum_of(const std::vector<bench_result>& results);

/// Returns the parameters of a cell, with defaults filled in.
qrx_params cell_params(int cell, const bench_plan& plan);

/// Returns an upper bound on the memory of measuring a cell with `files`, their content included.
uint64_t bench_memory(int cell, const bench_plan& plan, const std::vector<bench_file>& files);

/// Measures a cell with a file.  Every decoded block is compared with its source.  Returns the exit
/// status; on failure `error` describes it.
int measure_cell(int cell, const bench_plan& plan, const bench_file& file, bench_result& result,
                 std::string& error);

} // namespace tool
