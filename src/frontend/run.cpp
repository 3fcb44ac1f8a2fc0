#include "frontend/run.h"

#include "common/platform.h"
#include "format/file_type.h"
#include "frontend/options.h"
#include "frontend/path.h"
#include "frontend/walk.h"
#include "pipeline/codec_table.h"
#include "pipeline/drivers.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace quarnex {
namespace {

constexpr int status_good = 0;
constexpr int status_bad = 1;
constexpr int status_ended = -1;

/// Says what is wrong with the command line.  Returns the exit status, if it comes back.
int report_fault(const options& parsed, const std::string& tool)
{
    switch (parsed.fault) {
    case option_fault::unknown_level:
        std::puts("uknown level");
        std::fflush(stdout);
        end_abnormally();
    case option_fault::unknown_option:
        std::printf("\n Unknown option '%s'\n", parsed.fault_text.c_str());
        break;
    case option_fault::bad_value:
        std::fprintf(stderr, "%s: %s\n", tool.c_str(), parsed.fault_text.c_str());
        break;
    case option_fault::usage:
    case option_fault::none:
        print_usage(tool);
        break;
    }
    return status_bad;
}

/// Makes sure that the destination is a directory.  False, and a message, if it can't be one.
bool settle_destination(const std::string& name)
{
    const auto status = find_status(name.c_str());
    if (!status) {
        if (make_directory(name.c_str()) || errno == EEXIST) return true;
        std::fprintf(stderr, "cannot create directory '%s'\n", name.c_str());
        return false;
    }
    if (status->kind != file_kind::directory) {
        std::puts("destination is not a directory");
        return false;
    }
    return true;
}

/// Hands the file `source` to the driver; `relative` is its path below the destination.
i32 run_driver(pipeline_state& state, const options& parsed, const std::string& source,
               const std::string& relative)
{
    const std::string destination = path_below(parsed.destination, relative);
    return parsed.mode == direction::compress
               ? compress_file(state, parsed.job_template, source, destination)
               : decompress_file(state, source, destination);
}

/// Hands each regular file to the driver, until one fails.  Returns the last result.
i32 run_plain_loop(pipeline_state& state, const options& parsed)
{
    // A name that can't be looked up goes by the answer for the one before it.
    file_kind kind = file_kind::other;
    i32 result = driver_done;
    for (const std::string& name : parsed.names) {
        if (const auto status = find_status(name.c_str())) kind = status->kind;
        if (kind != file_kind::regular) continue;
        result = run_driver(state, parsed, name, name.substr(last_part(name)));
        if (result != driver_done) break;
    }
    return result;
}

/// Makes the directory `path` and those above it, as far as they are missing.  False, and a
/// message (the program's last words, without an end of line), if that fails.
bool make_directories(const std::string& path)
{
    usize end = 0;
    do {
        end = path.find(path_separator, end + 1);
        if (!make_directory(path.substr(0, end).c_str()) && errno != EEXIST) {
            std::fprintf(stderr, "cannot create directory '%s'", path.c_str());
            return false;
        }
    } while (end != std::string::npos);
    return true;
}

i32 run_on_file(pipeline_state& state, const options& parsed, const walk_entry& file)
{
    if (parsed.verbose != 0) std::puts(file.name.c_str());
    std::fflush(stdout);
    return run_driver(state, parsed, file.name, file.relative);
}

/// Rebuilds the directories and hands each regular file to the driver, whatever becomes of the
/// others.  Returns the result that has ended the run, or that all is done.
i32 run_walk(pipeline_state& state, const options& parsed)
{
    walker inputs(parsed.names, parsed.destination);
    while (const auto entry = inputs.next()) {
        if (entry->kind == file_kind::directory) {
            if (!make_directories(path_below(parsed.destination, entry->relative)))
                return driver_ends_run;
        } else if (entry->kind == file_kind::regular) {
            if (run_on_file(state, parsed, *entry) == driver_ends_run) return driver_ends_run;
        }
    }
    return driver_done;
}

/// Settles the destination and goes through the inputs.  Returns the exit status as far as this
/// thread knows it.
int run_files(pipeline_state& state, const options& parsed)
{
    if (!settle_destination(parsed.destination)) return status_ended;
    const i32 result = parsed.recursive ? run_walk(state, parsed) : run_plain_loop(state, parsed);
    return result == driver_ends_run ? status_ended : status_good; // a failure has only stopped it
}

/// The number of workers: so many as are asked for, if all have room.
u32 count_workers(const options& parsed, const level_defaults& defaults)
{
    if (parsed.mode == direction::decompress) return parsed.thread_count;
    file_parameters parameters = parsed.job_template;
    apply_defaults(parameters, defaults);
    return std::min(parsed.thread_count, encoders_with_room(parameters, address_space()));
}

} // namespace

int run(int argc, const char* const* argv)
{
    prepare_process();
    const level_defaults defaults = fit_to_cache(second_level_cache_kib());
    const std::string tool = tool_name(argc > 0 ? argv[0] : "quarnex");
    const options parsed = parse_options(argc, argv, processor_count());
    if (parsed.fault != option_fault::none) return report_fault(parsed, tool);

    pipeline_state state(count_workers(parsed, defaults));
    state.defaults = defaults;
    state.classify = classify_file;
    int status = status_ended;
    {
        const pipeline_threads threads(state, parsed.mode);
        if (threads.ready()) status = run_files(state, parsed);
    }
    return status == status_good && state.abort_count != 0 ? status_bad : status;
}

} // namespace quarnex
