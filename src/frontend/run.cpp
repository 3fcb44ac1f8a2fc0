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
#include <new>
#include <set>

namespace quarnex {
namespace {

constexpr int exit_ok = 0;
constexpr int exit_error = 1;
constexpr int exit_fatal = -1;

/// Prints what is wrong with the command line and returns the exit status.  An unknown level ends
/// the process.
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
    return exit_error;
}

/// Creates the destination directory if it is missing.  Returns false, with a message, on failure.
bool prepare_destination(const std::string& name)
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

/// Context of the engine's observer.
struct run_context {
    progress_line* progress = nullptr; // of the file being read
    engine* pipeline = nullptr;
    std::set<file_identity> created; // all destinations so far, if there are workers
};

bool show_progress(void* context, u64 done, u64 total)
{
    static_cast<run_context*>(context)->progress->advance(done, total);
    return true;
}

/// Returns whether a source is its own destination, with a message: creating the destination would
/// empty it.
bool is_same_file(const char* source, const file_identity& destination)
{
    const auto found = find_status(source);
    if (!found || found->identity != destination) return false;
    std::fprintf(stderr, "%s: skipped, it is its own destination\n", source);
    return true;
}

/// Decides whether a destination may be replaced.
bool may_replace(void* context, const char* source, const char* destination)
{
    const auto* const run = static_cast<run_context*>(context);
    const auto existing = find_status(destination);
    if (!existing) return true;
    if (is_same_file(source, existing->identity)) return false;
    // Opening a pipe can wait for a reader who first wants an earlier file.
    if (existing->kind != file_kind::regular) run->pipeline->flush_files();
    // A file of this run is replaced only once it is written.
    if (run->created.contains(existing->identity)) run->pipeline->wait_for_blocks();
    return true;
}

void note_created(void* context, int descriptor)
{
    auto* const run = static_cast<run_context*>(context);
    if (run->pipeline->has_workers()) run->created.insert(find_identity(descriptor));
}

/// Runs files through the engine one by one.
class file_runner {
  public:
    file_runner(engine& pipeline, run_context& context, const options& parsed,
                const file_parameters& parameters)
        : engine_(pipeline), context_(context), parsed_(parsed), parameters_(parameters)
    {
    }

    /// Compresses or restores the file `source`; `relative` is its path below the destination.
    status run(const std::string& source, const std::string& relative)
    {
        const bool compresses = parsed_.mode == direction::compress;
        if (compresses && has_suffix(source.c_str())) return status::done;
        const std::string path = join_paths(parsed_.destination, relative);
        const std::string destination = compresses ? compressed_name(path) : restored_name(path);
        const file_names names{source.c_str(), destination.c_str()};
        progress_line progress(source);
        context_.progress = &progress;
        const status result = compresses ? compress_file(engine_, names, parameters_)
                                         : decompress_file(engine_, names);
        return result == status::skipped ? status::done : result;
    }

  private:
    engine& engine_;
    run_context& context_;
    const options& parsed_;
    const file_parameters& parameters_;
};

/// Runs the regular files among the names until one fails.  Returns the last result.
status run_plain_loop(file_runner& files, const options& parsed)
{
    // A name that can't be looked up is treated as having the kind of the preceding name.
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
        result = files.run(name, name.substr(last_component(name)));
        if (result != status::done) break;
    }
    return result;
}

/// Creates the directory `path` and its missing parents.  Returns false, with a message without a
/// line end, on failure.
bool make_directories(const std::string& path)
{
    if (make_directory(path.c_str()) || errno == EEXIST) return true; // the parents usually exist
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

/// Returns whether restoring in place skips `file` because it lacks the suffix; prints a line if
/// so.
bool is_skipped(const options& parsed, const walk_entry& file)
{
    if (!file.in_place || parsed.mode == direction::compress || has_suffix(file.name.c_str()))
        return false;
    std::fprintf(stderr, "%s: skipped, its name does not end in %s\n", file.name.c_str(),
                 file_suffix);
    return true;
}

/// Recreates the directories and runs every regular file, continuing after failures.  Returns
/// status::destination_uncreated if that ended the run early, otherwise status::done.
status run_walk(file_runner& files, const options& parsed)
{
    walker inputs(parsed.names, parsed.destination);
    while (const auto entry = inputs.next()) {
        if (entry->kind == file_kind::directory) {
            if (!make_directories(join_paths(parsed.destination, entry->relative)))
                return status::destination_uncreated;
        } else if (entry->kind == file_kind::regular && !is_skipped(parsed, *entry)) {
            const status result = run_entry(files, parsed, *entry);
            if (result == status::destination_uncreated) return result;
        }
    }
    return status::done;
}

/// Prepares the destination and runs all inputs.  Returns the exit status, without regard to
/// failures on workers and the writer.
int run_files(file_runner& files, const options& parsed)
{
    if (!prepare_destination(parsed.destination)) return exit_fatal;
    const status result =
        parsed.recursive ? run_walk(files, parsed) : run_plain_loop(files, parsed);
    // Other failures only ended the loop and leave the exit status alone.
    return result == status::destination_uncreated ? exit_fatal : exit_ok;
}

/// Returns the number of workers: as requested, but when compressing no more than fit into the
/// address space.
u32 count_workers(const options& parsed, const file_parameters& parameters)
{
    if (parsed.mode == direction::decompress) return parsed.thread_count;
    return std::min(parsed.thread_count, max_encoders(parameters, address_space()));
}

} // namespace

int run(int argc, const char* const* argv)
{
    prepare_process();
    std::set_new_handler(abort_out_of_memory);
    const std::string tool = tool_name(argc > 0 ? argv[0] : "quarnex");
    const options parsed = parse_options(argc, argv, processor_count());
    if (parsed.fault != option_fault::none) return report_fault(parsed, tool);
    file_parameters parameters = parsed.job_template;
    settle_parameters(parameters, fit_to_cache(second_level_cache_kib()));

    run_context context;
    const observer watcher{report_event, show_progress, may_replace, note_created, &context};
    int exit_status = exit_fatal;
    engine pipeline(system_allocator, count_workers(parsed, parameters), watcher);
    context.pipeline = &pipeline;
    {
        const engine_threads threads(pipeline);
        file_runner files(pipeline, context, parsed, parameters);
        if (threads.ready()) exit_status = run_files(files, parsed);
    }
    return exit_status == exit_ok && pipeline.thread_failures() != 0 ? exit_error : exit_status;
}

} // namespace quarnex
