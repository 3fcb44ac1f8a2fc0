#include "schedules/scenarios.h"
#include "schedules/shim.h"
#include "support/driver_runs.h"
#include "support/process_entries.h"

#include <algorithm>
#include <filesystem>

namespace quarnex::test {
namespace {

constexpr u32 max_seconds = 120;

/// The fault of a run.
struct fault {
    failing_call call = failing_call::none;
    u32 call_number = 0;
    u32 allocation = 0; // the one that fails; 0: none
    u32 cancelled = 0;  // call of advance() that cancels; 0: none
};

fault any_fault(random_source& random, u32 workers)
{
    fault chosen;
    switch (random.below(16)) {
    case 0:
    case 1:
        chosen.call = failing_call::write;
        chosen.call_number = 1 + random.below(12);
        break;
    case 2:
        chosen.call = failing_call::read;
        chosen.call_number = 1 + random.below(12);
        break;
    case 3:
        chosen.call = failing_call::close;
        chosen.call_number = 1 + random.below(8);
        break;
    case 4:
        chosen.call = failing_call::open;
        chosen.call_number = 1 + random.below(8);
        break;
    case 5:
        chosen.call = failing_call::start_thread;
        chosen.call_number = 1 + random.below(workers + 1);
        break;
    case 6:
    case 7:
        chosen.allocation = 1 + random.below(40);
        break;
    case 8:
        chosen.cancelled = 1 + random.below(6);
        break;
    default: // nothing
        break;
    }
    return chosen;
}

/// One of the files of a run.
struct file_run {
    const sample* original;
    std::string source;
    std::string destination;
    status result = status::stopped;
    bool is_reported = false; // in an event
};

/// The observer of a run.
class run_watcher {
  public:
    explicit run_watcher(u32 cancelled) : left_(cancelled) {}
    run_watcher(const run_watcher&) = delete;
    run_watcher& operator=(const run_watcher&) = delete;

    observer get()
    {
        observer watcher;
        watcher.tell = [](void* self, const event& happened) {
            const observer recording = static_cast<run_watcher*>(self)->recorder.watcher();
            recording.tell(recording.context, happened);
        };
        watcher.advance = [](void* self, u64, u64) {
            auto& run = *static_cast<run_watcher*>(self);
            if (run.left_ == 0 || --run.left_ != 0) return true;
            run.has_cancelled = true;
            return false;
        };
        watcher.context = this;
        return watcher;
    }

    event_recorder recorder;
    bool has_cancelled = false;

  private:
    u32 left_;
};

/// Runs the drivers over some files.  Returns whether the fault occurred.
bool run_files(random_source& random, direction mode, const file_parameters& parameters,
               std::vector<file_run>& files)
{
    const u32 workers = random.below(9);
    const fault chosen = any_fault(random, workers);
    const bool ends_at_failure = random.below(2) == 0;
    const usize descriptors = open_descriptors();
    scenario_memory memory(chosen.allocation);
    run_watcher watcher(chosen.cancelled);
    bool had_threads = false;
    status first_failure = status::done;
    {
        engine work(memory.get(), workers, watcher.get());
        fail_call(chosen.call, chosen.call_number);
        {
            const engine_threads threads(work);
            had_threads = threads.ready();
            for (file_run& file : files) {
                if (!had_threads) break;
                const file_names names{file.source.c_str(), file.destination.c_str()};
                file.result = mode == direction::compress
                                  ? compress_file(work, names, parameters, false)
                                  : decompress_file(work, names);
                if (file.result != status::done && ends_at_failure) break;
            }
        }
        first_failure = work.first_failure();
    }
    const bool failed = call_failed() || memory.has_refused() || watcher.has_cancelled;
    fail_call(failing_call::none, 0);

    check(memory.in_use() == 0, "memory of the engine is left");
    check(open_descriptors() == descriptors, "descriptors of the engine are left");
    check(had_threads || failed, "threads are missing");
    check(first_failure == status::done || failed, "an undisturbed run failed");
    const std::vector<recorded_event> events = watcher.recorder.take();
    check(events.empty() || failed, "an undisturbed run had an event");
    for (const recorded_event& happened : events) {
        for (file_run& file : files) {
            if (happened.name == file.source || happened.name == file.destination)
                file.is_reported = true;
        }
    }
    for (const file_run& file : files) {
        if (failed || file.result == status::done) continue;
        check(false, "an undisturbed file failed");
    }
    return failed;
}

/// A file that was finished without an event has to be right, whatever happened to others.
bool is_finished(const file_run& file)
{
    return file.result == status::done && !file.is_reported;
}

void check_compressed(const std::vector<file_run>& files, const file_parameters& parameters,
                      sample_set& samples)
{
    for (const file_run& file : files) {
        const bytes& expected = samples.compressed(*file.original, parameters);
        const bytes image = read_file(file.destination);
        if (is_finished(file))
            check(in_order(image) == expected, "a compressed file is wrong");
        else
            check(is_start_of(image, expected), "the start of a compressed file is wrong");
    }
}

void check_restored(const std::vector<file_run>& files)
{
    for (const file_run& file : files) {
        const bytes restored = read_file(file.destination);
        if (is_finished(file))
            check(restored == file.original->content, "a restored file is wrong");
        else
            check(restored.size() <= file.original->content.size(), "a restored file is too long");
    }
}

/// Chooses the files of a run: some of any size, or many small ones.
std::vector<const sample*> any_files(random_source& random, const sample_set& samples, bool is_tiny)
{
    std::vector<const sample*> chosen;
    usize blocks = 0;
    const bool is_small = is_tiny || random.below(3) == 0;
    for (u32 left = 1 + random.below(is_tiny ? 40 : is_small ? 12 : 5); left != 0; --left) {
        const sample& each = is_tiny    ? samples.any_tiny(random)
                             : is_small ? samples.any_small(random)
                                        : samples.any(random);
        blocks += 1 + each.content.size() / mib;
        if (!is_small && blocks > 9 && !chosen.empty()) break;
        chosen.push_back(&each);
    }
    return chosen;
}

} // namespace

void* scenario_memory::allocate(usize size, memory_kind kind)
{
    if (left_.load(std::memory_order_relaxed) != 0 &&
        left_.fetch_sub(1, std::memory_order_relaxed) == 1) {
        has_refused_.store(true, std::memory_order_relaxed);
        return nullptr;
    }
    void* const memory = system_allocator.allocate(system_allocator.context, size, kind);
    if (memory != nullptr) in_use_.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void scenario_memory::release(void* memory, usize size, memory_kind kind)
{
    in_use_.fetch_sub(1, std::memory_order_relaxed);
    system_allocator.release(system_allocator.context, memory, size, kind);
}

void run_engine_scenario(u64 seed, sample_set& samples, const std::string& directory,
                         scenario_counts& counts)
{
    random_source random(seed);
    const bool is_tiny = random.below(4) == 0;
    const file_parameters parameters = any_parameters(random, is_tiny);
    std::vector<file_run> files;
    for (const sample* each : any_files(random, samples, is_tiny)) {
        samples.compressed(*each, parameters); // before the threads start
        const std::string name = directory + "/" + std::to_string(files.size());
        std::filesystem::create_hard_link(each->name, name);
        files.push_back({each, name, name + ".qrx"});
    }

    begin_run(seed, max_seconds);
    bool failed = run_files(random, direction::compress, parameters, files);
    end_run();
    check_compressed(files, parameters, samples);

    // Restores the files that were just written, whose records can be out of order.
    const bool uses_own = !failed && random.below(4) != 0;
    for (file_run& file : files) {
        file.source =
            uses_own ? file.destination : samples.compressed_name(*file.original, parameters);
        file.destination = directory + "/" + std::to_string(&file - files.data()) + ".out";
        file.result = status::stopped;
        file.is_reported = false;
    }
    begin_run(seed, max_seconds);
    failed |= run_files(random, direction::decompress, parameters, files);
    end_run();
    check_restored(files);
    ++counts.engine_runs;
    if (failed) ++counts.engine_failures;
}

} // namespace quarnex::test
