#include "frontend/run.h"

#include "common/platform.h"
#include "frontend/file_type.h"
#include "frontend/options.h"
#include "pipeline/drivers.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

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
        std::abort();
    case option_fault::unknown_option:
        std::printf("\n Unknown option '%s'\n", parsed.fault_text.c_str());
        break;
    case option_fault::bad_value:
    case option_fault::not_built:
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
    file_kind kind{};
    if (!find_kind(name.c_str(), kind)) {
        if (make_directory(name.c_str()) || errno == EEXIST) return true;
        std::fprintf(stderr, "cannot create directory '%s'\n", name.c_str());
        return false;
    }
    if (kind != file_kind::directory) {
        std::puts("destination is not a directory");
        return false;
    }
    return true;
}

/// The path of `name`'s last part below `directory`.
std::string path_below(const std::string& directory, const std::string& name)
{
    std::string path = directory;
    if (path.empty() || path.back() != path_separator) path += path_separator;
    const usize separator = name.rfind(path_separator);
    return path + (separator == std::string::npos ? name : name.substr(separator + 1));
}

/// Hands each regular file to the driver, until one fails.  Returns the last result.
i32 run_plain_loop(pipeline_state& state, const options& parsed)
{
    // A name that can't be looked up goes by the answer for the one before it.
    file_kind kind = file_kind::other;
    i32 result = driver_done;
    for (const std::string& name : parsed.names) {
        find_kind(name.c_str(), kind);
        if (kind != file_kind::regular) continue;
        const std::string destination = path_below(parsed.destination, name);
        result = parsed.mode == direction::compress
                     ? compress_file(state, parsed.job_template, name, destination)
                     : decompress_file(state, name, destination);
        if (result != driver_done) break;
    }
    return result;
}

/// Settles the destination and walks the inputs.  Returns the exit status as far as this thread
/// knows it.
int run_files(pipeline_state& state, const options& parsed)
{
    if (!settle_destination(parsed.destination)) return status_ended;
    switch (run_plain_loop(state, parsed)) {
    case driver_ends_run:
        return status_ended;
    case driver_not_built:
        return status_bad;
    default:
        return status_good; // a driver's failure has only stopped the loop
    }
}

} // namespace

int run(int argc, const char* const* argv)
{
    prepare_process();
    const level_defaults defaults = fit_to_cache(second_level_cache_kib());
    const std::string tool = tool_name(argc > 0 ? argv[0] : "quarnex");
    const options parsed = parse_options(argc, argv, processor_count());
    if (parsed.fault != option_fault::none) return report_fault(parsed, tool);

    pipeline_state state(parsed.thread_count);
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
