#include "schedules/scenarios.h"
#include "schedules/shim.h"

#include "common/platform/thread.h"
#include "support/handles.h"
#include "support/pipeline_jobs.h"
#include "support/process_entries.h"
#include "support/qrx_file.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace quarnex::test {
namespace {

constexpr u32 max_seconds = 120;
constexpr u32 max_callers = 4;

/// A file in memory for sources and sinks, one call of which can fail.
struct memory_file {
    bytes image;
    u32 failing = 0; // call that fails, from 1; 0: none
    bool has_failed = false;

    bool fails()
    {
        if (failing == 0 || --failing != 0) return false;
        has_failed = true;
        return true;
    }

    qrx_source source()
    {
        return {sizeof(qrx_source),
                [](void* self, uint64_t offset, void* dest, size_t size, size_t* got) {
                    auto& file = *static_cast<memory_file*>(self);
                    if (file.fails()) return EIO;
                    const usize start = std::min(static_cast<usize>(offset), file.image.size());
                    *got = std::min(size, file.image.size() - start);
                    std::copy_n(file.image.data() + start, *got, static_cast<u8*>(dest));
                    return 0;
                },
                image.size(), this};
    }

    qrx_sink sink()
    {
        return {sizeof(qrx_sink),
                [](void* self, uint64_t offset, const void* src, size_t size) {
                    auto& file = *static_cast<memory_file*>(self);
                    if (file.fails()) return ENOSPC;
                    const usize start = static_cast<usize>(offset);
                    file.image.resize(std::max(file.image.size(), start + size));
                    std::copy_n(static_cast<const u8*>(src), size, file.image.data() + start);
                    return 0;
                },
                this};
    }
};

/// What a thread of the scenario works with.
struct task {
    u64 seed = 0;
    const sample* original = nullptr;
    file_parameters parameters;
    bytes plain;      // the .qrx file without a seal
    bytes sealed;     // and with one
    std::string name; // for a file of its own
    bool may_lack_threads = false;
    bool is_long = false; // blocks are nearly all written as they are, so it takes little time
    scenario_counts* counts = nullptr;
};

/// Options of a handle: threads, and at most one thing that goes wrong.
struct session_options : qrx_options {
    session_options(const task& work, random_source& random)
        : qrx_options(sized<qrx_options>()),
          memory_(random.below(10) == 0 ? 1 + random.below(30) : 0),
          may_lack_threads_(work.may_lack_threads)
    {
        threads = random.below(work.may_lack_threads ? 9 : 5);
        flags = random.below(work.is_long ? 8 : 2) == 0 ? QRX_SEAL : 0;
        allocator = {
            [](void* self, size_t size) {
                return static_cast<scenario_memory*>(self)->allocate(size, memory_kind::plain);
            },
            [](void* self, void* memory, size_t size) {
                static_cast<scenario_memory*>(self)->release(memory, size, memory_kind::plain);
            },
            &memory_};
        if (random.below(8) == 0) cancelled_call_ = 1 + random.below(8);
        progress = [](void* self, uint64_t, uint64_t) {
            auto& options = *static_cast<session_options*>(self);
            check(pthread_equal(options.owner_, pthread_self()) != 0,
                  "progress() on another thread");
            if (options.cancelled_call_ == 0 || --options.cancelled_call_ != 0) return 0;
            options.has_cancelled = true;
            return 1;
        };
        event = [](void* self, const qrx_event*) {
            auto& options = *static_cast<session_options*>(self);
            check(pthread_equal(options.owner_, pthread_self()) != 0, "event() on another thread");
        };
        context = this;
    }
    session_options(const session_options&) = delete;
    session_options& operator=(const session_options&) = delete;
    ~session_options() { check(memory_.in_use() == 0, "memory of a handle is left"); }

    /// Checks the result of a call.  Returns whether the call succeeded.
    bool succeeded(qrx_status result, const memory_file* file = nullptr) const
    {
        if (result == QRX_OK) return true;
        const bool is_explained =
            (result == QRX_CANCELLED && has_cancelled) ||
            (result == QRX_NO_MEMORY && memory_.has_refused()) ||
            (result == QRX_NO_THREAD && may_lack_threads_) ||
            ((result == QRX_READ_FAILED || result == QRX_WRITE_FAILED ||
              result == QRX_OPEN_FAILED) &&
             ((file != nullptr && file->has_failed) || (may_lack_threads_ && call_failed())));
        check(is_explained, "an undisturbed call of the library failed");
        return false;
    }

    bool has_cancelled = false;

  private:
    scenario_memory memory_;
    const bool may_lack_threads_;
    const pthread_t owner_ = pthread_self();
    u32 cancelled_call_ = 0; // 0: none
};

const bytes& image_of(const task& work, const session_options& options)
{
    return (options.flags & QRX_SEAL) != 0 ? work.sealed : work.plain;
}

/// Appends the whole content to a writer.  Returns false at a failure or if it gives up.
bool write_content(const task& work, random_source& random, const session_options& options,
                   const memory_file& file, qrx_writer* writer)
{
    const bytes& content = work.original->content;
    const auto parsed = parse_qrx(work.plain);
    const bool gives_up = random.below(8) == 0;
    for (usize done = 0; done < content.size();) {
        if (gives_up && random.below(4) == 0) return false;
        const usize left = content.size() - done;
        qrx_status result = QRX_OK;
        usize size = std::min<usize>(left, 1 + random.below(2 * mib));
        if (done % mib == 0 && (work.is_long ? random.below(8) != 0 : random.below(3) == 0)) {
            const bytes& payload = parsed->records[done / mib].payload;
            size = std::min(left, mib);
            result = qrx_writer_raw_block(writer, payload.data(), payload.size(), size, nullptr);
        } else if (random.below(2) == 0) {
            void* dest = nullptr;
            usize room = 0;
            result = qrx_writer_buffer(writer, &dest, &room);
            if (result == QRX_OK) {
                size = std::min(size, room);
                std::copy_n(&content[done], size, static_cast<u8*>(dest));
                result = qrx_writer_advance(writer, size);
            }
        } else {
            result = qrx_writer_write(writer, &content[done], size);
        }
        if (!options.succeeded(result, &file)) return false;
        done += size;
    }
    return true;
}

bool use_writer(const task& work, random_source& random)
{
    session_options options(work, random);
    const qrx_params params = params_of(work.parameters);
    memory_file file;
    if (random.below(8) == 0) file.failing = 1 + random.below(8);
    const qrx_sink sink = file.sink();
    const bool has_name = random.below(3) == 0;
    const u64 size = random.below(2) == 0 ? work.original->content.size() : QRX_UNKNOWN_SIZE;
    qrx_writer* opened = nullptr;
    const qrx_status result =
        has_name ? qrx_writer_open(&opened, work.name.c_str(), size, &params, &options)
                 : qrx_writer_open_sink(&opened, &sink, size, &params, &options);
    if (!options.succeeded(result, &file)) return false;
    writer_ptr writer(opened);
    const bool is_finished = write_content(work, random, options, file, opened) &&
                             options.succeeded(qrx_writer_finish(opened), &file);
    writer.reset();
    if (has_name) {
        check(file_exists(work.name) == is_finished, "a writer leaves a file, or no file");
        file.image = read_file(work.name);
        std::filesystem::remove(work.name);
    }
    if (is_finished) check(file.image == image_of(work, options), "a written file is wrong");
    return is_finished;
}

/// Reads a range, and checks what was read.
bool read_range(const task& work, const session_options& options, const memory_file& file,
                qrx_reader* reader, usize offset, usize size)
{
    const bytes& content = work.original->content;
    bytes data(size);
    usize got = 0;
    const bool done =
        options.succeeded(qrx_reader_read(reader, offset, data.data(), size, &got), &file);
    data.resize(got);
    check(is_part(data, content, offset), "bytes read are wrong");
    check(!done || got == std::min(size, content.size() - offset), "bytes read are missing");
    return done;
}

bool use_reader(const task& work, random_source& random)
{
    session_options options(work, random);
    memory_file file{image_of(work, options)};
    if (random.below(8) == 0) file.failing = 1 + random.below(16);
    const qrx_source source = file.source();
    qrx_reader* opened = nullptr;
    if (random.below(4) == 0) options.flags |= QRX_SEARCH;
    const qrx_status result =
        random.below(2) == 0
            ? qrx_reader_open_source(&opened, &source, &options)
            : qrx_reader_open_memory(&opened, file.image.data(), file.image.size(), &options);
    // An index that can't be read completely is no failure, but blocks are missing.
    const bool is_partial = file.has_failed;
    if (!options.succeeded(result, &file) || is_partial) {
        qrx_reader_close(opened);
        return false;
    }
    const reader_ptr reader(opened);
    const bytes& content = work.original->content;
    usize position = 0;
    bool all_done = true;
    for (u32 left = random.below(10); left != 0; --left) {
        switch (random.below(8)) {
        case 0: // elsewhere
            position = random.below(static_cast<u32>(content.size()) + 1);
            break;
        case 1: {
            const usize block = position / mib;
            bytes data(mib);
            usize size = 0;
            if (block * mib >= content.size()) break;
            if (options.succeeded(qrx_reader_block(opened, block, data.data(), data.size(), &size),
                                  &file)) {
                data.resize(size);
                check(is_part(data, content, block * mib), "a block read is wrong");
            } else {
                all_done = false;
            }
            break;
        }
        case 2:
            all_done &= options.succeeded(qrx_reader_test(opened), &file);
            break;
        default: {
            const usize size = random.below(static_cast<u32>(random.below(2) == 0 ? mib : 3 * mib));
            if (read_range(work, options, file, opened, position, size))
                position = std::min(position + size, content.size());
            else // it can be repeated, since at most one thing goes wrong at a time
                all_done = false;
            break;
        }
        }
    }
    return all_done;
}

bool use_buffers(const task& work, random_source& random)
{
    session_options options(work, random);
    const bytes& content = work.original->content;
    const bytes& expected = image_of(work, options);
    const qrx_params params = params_of(work.parameters);
    bytes image(qrx_compress_bound(&params, content.size()));
    usize size = 0;
    const bool is_compressed = options.succeeded(qrx_compress(
        &params, &options, content.data(), content.size(), image.data(), image.size(), &size));
    image.resize(size);
    if (is_compressed) check(image == expected, "a compressed buffer is wrong");
    bytes restored(content.size());
    const bool is_restored = options.succeeded(qrx_decompress(
        &options, expected.data(), expected.size(), restored.data(), restored.size(), &size));
    restored.resize(is_restored ? size : std::min(size, restored.size()));
    check(is_part(restored, content, 0), "a restored buffer is wrong");
    check(!is_restored || restored.size() == content.size(), "a restored buffer is short");
    return is_compressed && is_restored;
}

bool use_codec(const task& work, random_source& random)
{
    session_options options(work, random);
    const bytes& content = work.original->content;
    const auto parsed = parse_qrx(work.plain);
    const qrx_params params = params_of(work.parameters);
    qrx_codec* made = nullptr;
    if (!options.succeeded(qrx_codec_new(&made, &params, &options))) return false;
    const codec_ptr codec(made);
    for (u32 left = content.empty() ? 0 : random.below(4); left != 0; --left) {
        const usize number = random.below(static_cast<u32>(parsed->records.size()));
        const usize length = std::min(mib, content.size() - number * mib);
        const u8* const block = &content[number * mib];
        bytes payload(length + QRX_CODEC_SLACK);
        usize size = 0;
        if (!options.succeeded(
                qrx_codec_compress(made, block, length, payload.data(), payload.size(), &size)))
            return false;
        payload.resize(size);
        check(payload == parsed->records[number].payload, "a payload is wrong");
        bytes restored(length);
        if (!options.succeeded(
                qrx_codec_decompress(made, payload.data(), size, restored.data(), length)))
            return false;
        check(is_part(restored, content, number * mib), "a block is wrong");
    }
    return true;
}

constexpr u32 writer_kind = 5; // of a session

/// A few sessions, one after another.
void run_task(void* given)
{
    const task& work = *static_cast<task*>(given);
    random_source random(work.seed);
    for (u32 left = 1 + random.below(3); left != 0; --left) {
        bool done = false;
        switch (work.is_long ? writer_kind : random.below(writer_kind + 2)) {
        case 0:
            done = use_codec(work, random);
            break;
        case 1:
            done = use_buffers(work, random);
            break;
        case 2:
        case 3:
        case 4:
            done = use_reader(work, random);
            break;
        default:
            done = use_writer(work, random);
            break;
        }
        work.counts->sessions.fetch_add(1, std::memory_order_relaxed);
        if (!done) work.counts->session_failures.fetch_add(1, std::memory_order_relaxed);
    }
}

/// Lets at most one system call fail.  Files are used by name only in writers.
void fail_any_call(random_source& random)
{
    switch (random.below(8)) {
    case 0:
        return fail_call(failing_call::start_thread, 1 + random.below(8));
    case 1:
        return fail_call(failing_call::write, 1 + random.below(6));
    case 2:
        return fail_call(failing_call::close, 1);
    default:
        return;
    }
}

} // namespace

void run_library_scenario(u64 seed, sample_set& samples, const std::string& directory,
                          scenario_counts& counts)
{
    random_source random(seed);
    const u32 callers = random.below(3) == 0 ? 2 + random.below(max_callers - 1) : 1;
    std::array<task, max_callers> tasks;
    for (u32 i = 0; i < callers; ++i) {
        const bool is_tiny = random.below(8) == 0;
        task& work = tasks[i];
        work.seed = seed * max_callers + i;
        work.original = is_tiny ? &samples.any_tiny(random) : &samples.any(random);
        work.parameters = any_parameters(random, is_tiny);
        work.is_long = random.below(8) == 0;
        if (work.is_long) {
            work.original = &samples.longest();
            work.parameters = quick_parameters;
        }
        work.plain = samples.compressed(*work.original, work.parameters);
        work.sealed = work.plain;
        const bytes& content = work.original->content;
        const u32 seal = qrx_crc32(0, content.data(), content.size());
        for (u32 byte = 0; byte < 4; ++byte)
            work.sealed.push_back(static_cast<u8>(seal >> (8 * byte)));
        work.name = directory + "/written" + std::to_string(i);
        work.may_lack_threads = callers == 1;
        work.counts = &counts;
    }
    const usize descriptors = open_descriptors();
    begin_run(seed, max_seconds);
    if (callers == 1) {
        fail_any_call(random);
        run_task(tasks.data());
        fail_call(failing_call::none, 0);
    } else {
        std::array<system_thread, max_callers> threads;
        for (u32 i = 0; i < callers; ++i) {
            if (!threads[i].start(run_task, &tasks[i])) std::abort();
        }
    }
    end_run();
    check(open_descriptors() == descriptors, "descriptors of a handle are left");
    check(std::filesystem::is_empty(directory), "a file of a writer is left");
    ++counts.library_runs;
}

} // namespace quarnex::test
