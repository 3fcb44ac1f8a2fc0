#include "frontend/run.h"

#include "common/platform/cpu.h"
#include "common/platform/memory.h"
#include "frontend/messages.h"
#include "frontend/names.h"
#include "frontend/options.h"
#include "frontend/path.h"
#include "frontend/progress.h"
#include "frontend/system.h"
#include "frontend/walk.h"
#include "pipeline/codec_table.h"
#include "pipeline/drivers.h"
#include "pipeline/parameters.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

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

/// What the engine's observer works on.
struct run_context {
    progress_line* progress = nullptr; // of the file that is read
};

bool show_progress(void* context, u64 done, u64 total)
{
    static_cast<run_context*>(context)->progress->advance(done, total);
    return true;
}

/// The files of a run, one after the other through the engine.
class file_runner {
  public:
    file_runner(engine& with, run_context& context, const options& parsed,
                const file_parameters& parameters)
        : engine_(with), context_(context), parsed_(parsed), parameters_(parameters)
    {
    }

    /// Sends the file `source` through the engine; `relative` is its path below the destination.
    status run(const std::string& source, const std::string& relative)
    {
        const bool compresses = parsed_.mode == direction::compress;
        if (compresses && has_suffix(source.c_str())) return status::done;
        const std::string path = path_below(parsed_.destination, relative);
        const std::string destination = compresses ? compressed_name(path) : restored_name(path);
        const file_names names{source.c_str(), destination.c_str()};
        wait_for(destination);
        progress_line progress(source);
        context_.progress = &progress;
        const status result = compresses ? compress_file(engine_, names, parameters_)
                                         : decompress_file(engine_, names);
        if (const auto made = find_status(destination.c_str())) made_.insert(made->identity);
        return result;
    }

  private:
    /// Waits until a file is whole if it is a destination of this run, before it is replaced.
    void wait_for(const std::string& destination)
    {
        const auto before = find_status(destination.c_str());
        if (before && made_.contains(before->identity)) engine_.wait_for_blocks();
    }

    engine& engine_;
    run_context& context_;
    const options& parsed_;
    const file_parameters& parameters_;
    std::set<file_identity> made_; // all destinations so far
};

/// Runs each regular file until one fails.  Returns the last result.
status run_plain_loop(file_runner& files, const options& parsed)
{
    // A name that can't be looked up is treated as the kind of the name before it.
    file_kind kind = file_kind::other;
    status result = status::done;
    for (const std::string& name : parsed.names) {
        if (const auto found = find_status(name.c_str())) {
            kind = found->kind;
        } else if (kind != file_kind::regular) {
            report_event(
                nullptr,
                {.kind = event_kind::source_unopened, .cause = errno, .name = name.c_str()});
        }
        if (kind != file_kind::regular) continue;
        result = files.run(name, name.substr(last_part(name)));
        if (result != status::done) break;
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

status run_entry(file_runner& files, const options& parsed, const walk_entry& file)
{
    if (parsed.verbose != 0) std::puts(file.name.c_str());
    std::fflush(stdout);
    return files.run(file.name, file.relative);
}

/// Whether a file is passed over: one that a run in place would restore, but that isn't compressed.
bool is_left_out(const options& parsed, const walk_entry& file)
{
    if (!file.in_place || parsed.mode == direction::compress || has_suffix(file.name.c_str()))
        return false;
    std::fprintf(stderr, "%s: skipped, its name does not end in %s\n", file.name.c_str(),
                 file_suffix);
    return true;
}

/// Rebuilds the directories and runs each regular file, whatever becomes of the others.  Returns
/// the result that has ended the run, or that all is done.
status run_walk(file_runner& files, const options& parsed)
{
    walker inputs(parsed.names, parsed.destination);
    while (const auto entry = inputs.next()) {
        if (entry->kind == file_kind::directory) {
            if (!make_directories(path_below(parsed.destination, entry->relative)))
                return status::destination_uncreated;
        } else if (entry->kind == file_kind::regular && !is_left_out(parsed, *entry)) {
            const status result = run_entry(files, parsed, *entry);
            if (result == status::destination_uncreated) return result;
        }
    }
    return status::done;
}

/// Settles the destination and goes through the inputs.  Returns the exit status as far as this
/// thread knows it.
int run_files(file_runner& files, const options& parsed)
{
    if (!settle_destination(parsed.destination)) return status_ended;
    const status result =
        parsed.recursive ? run_walk(files, parsed) : run_plain_loop(files, parsed);
    // All other failures have only stopped the loop.
    return result == status::destination_uncreated ? status_ended : status_good;
}

/// The number of workers: as many as are asked for, if there is room for all.
u32 count_workers(const options& parsed, const file_parameters& parameters)
{
    if (parsed.mode == direction::decompress) return parsed.thread_count;
    return std::min(parsed.thread_count, encoders_with_room(parameters, address_space()));
}

} // namespace

int run(int argc, const char* const* argv)
{
    prepare_process();
    const std::string tool = tool_name(argc > 0 ? argv[0] : "quarnex");
    const options parsed = parse_options(argc, argv, processor_count());
    if (parsed.fault != option_fault::none) return report_fault(parsed, tool);
    file_parameters parameters = parsed.job_template;
    settle_parameters(parameters, fit_to_cache(second_level_cache_kib()));

    run_context context;
    const observer watcher{report_event, show_progress, &context};
    int exit_status = status_ended;
    engine work(system_allocator, count_workers(parsed, parameters), watcher);
    {
        const engine_threads threads(work);
        file_runner files(work, context, parsed, parameters);
        if (threads.ready()) exit_status = run_files(files, parsed);
    }
    return exit_status == status_good && work.thread_failures() != 0 ? status_bad : exit_status;
}

} // namespace quarnex
