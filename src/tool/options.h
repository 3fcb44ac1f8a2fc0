// tool/options.h - the command line of qrx
#pragma once

#include "qrx.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tool {

using path = std::filesystem::path;

/// Exit statuses; the status of several files is the largest one.
enum exit_status : int {
    exit_good = 0,
    exit_failed = 1,   // a system or usage error: a file can't be read, an option is unknown
    exit_damaged = 2,  // a file is damaged or not a .qrx file
    exit_internal = 3, // a defect of the program
};

enum class command {
    compress,
    decompress,
    test,
    list,
    info,
    verify,
    cat,
    recover,
    split,
    join,
    bench
};

/// A range of bytes, `first` up to but not including `last`.
struct byte_range {
    uint64_t first = 0;
    uint64_t last = UINT64_MAX;
};

struct options {
    command what = command::compress;
    std::vector<path> names; // operands; "-" is standard input or output

    // outputs
    bool to_stdout = false;
    path output;    // the output file; empty: by the name of the input
    path directory; // where outputs go; empty: beside their inputs
    bool recursive = false;
    bool force = false;
    bool removes_source = false;
    bool syncs = true; // flush outputs to disk before they get their names

    // compression and resources
    qrx_params params{};
    path like;            // a .qrx file whose parameters replace `params`
    uint32_t threads = 0; // 0: as many as processors
    uint64_t memory_limit = 0;
    bool seals = true;
    bool verifies = false;

    // messages
    int verbosity = 0; // -1 quiet, 1 verbose
    bool json = false;

    // options of single commands
    bool tests_blocks = false; // info: decode all blocks
    byte_range range;          // cat
    uint64_t piece_blocks = 0; // split: blocks of a piece; 0: by piece_count
    uint64_t piece_count = 0;  // split
    std::vector<int> cells;    // bench: two digits each; empty: all
    path plot;                 // bench: SVG file
    double min_seconds = 0.5;  // bench: time spent on repetitions of each measurement

    bool reads_stdin() const
    {
        return names.empty() || std::find(names.begin(), names.end(), "-") != names.end();
    }
    bool is_quiet() const { return verbosity < 0; }
    bool is_verbose() const { return verbosity > 0; }
};

/// Reads the command line.  `words` starts with the program's name, which can select a command
/// (unqrx, qrxcat).  Help, version and errors are printed here: then nothing is returned, and
/// `status` receives the exit status.
std::optional<options> read_command_line(const std::vector<std::string>& words, int& status);

/// True for "-", which stands for a standard stream.
inline bool is_stdio(const path& name)
{
    return name == "-";
}

} // namespace tool
