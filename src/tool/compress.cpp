// Compresses files and standard input.
#include "tool/codecs.h"
#include "tool/commands.h"
#include "tool/compare.h"
#include "tool/json.h"
#include "tool/process.h"
#include "tool/targets.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

namespace tool {
namespace {

/// Bytes at the start of a file that determine its type.
constexpr size_t sample_bytes = size_t{1} << 20;

/// Reads the parameters from the header of an existing .qrx file (--like).  Reports failures and
/// returns the exit status.
int read_like(const session& run, qrx_params& params)
{
    const path& name = run.settings.like;
    const auto fail = [&](const std::string& text, int status) {
        run.messages.error(name, text);
        return status;
    };
    input_file file;
    std::array<char, file_header_bytes> header{};
    size_t got = 0;
    int error = file.open(name);
    if (error == 0) error = file.read(header.data(), header.size(), got);
    if (error != 0) return fail(system_error_text(error), exit_failed);
    observer watcher;
    const qrx_options library = library_options(watcher, 0, 0);
    qrx_reader* made = nullptr;
    const qrx_status result = qrx_reader_open_memory(&made, header.data(), got, &library);
    const reader_ptr reader(made);
    if (result != QRX_OK) return fail(failure_text(result, watcher), exit_status_of(result));
    qrx_reader_params(made, &params);
    qrx_params settled = params;
    // A damaged header can hold values that no encoder writes.
    if (qrx_params_settle(&settled) != QRX_OK || settled.block_mib != params.block_mib)
        return fail("its header has parameters that can't be used", exit_damaged);
    params = settled;
    return exit_good;
}

class compression {
  public:
    compression(const session& run, const work_item& item, const qrx_params& params,
                codec_cache& codecs)
        : run_(run), item_(item), codecs_(codecs), params_(params)
    {
    }

    int run()
    {
        const auto started = std::chrono::steady_clock::now();
        if (!may_remove(run_, item_)) return exit_failed;
        int status = open_source();
        if (status == exit_good) status = open_target();
        if (status == exit_good) status = compress();
        run_.progress.end();
        if (status == exit_good) status = finish();
        if (status != exit_good) return status;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
        report(seconds.count());
        return run_.settings.removes_source ? remove_source(run_, item_.source, source_.traits())
                                            : exit_good;
    }

  private:
    bool is_stdout() const { return item_.target.empty(); }
    const path& target_name() const
    {
        static const path standard_output = "-";
        return is_stdout() ? standard_output : item_.target;
    }
    bool verifies() const { return run_.settings.verifies || run_.settings.removes_source; }

    int fail(const path& name, const std::string& text, int status = exit_failed) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    int open_source()
    {
        const bool is_stdin = is_stdio(item_.source);
        file_traits named;
        const options& settings = run_.settings;
        const bool is_chosen = settings.force || settings.to_stdout || !settings.output.empty();
        // Checked before opening, which would wait for the other end of a named pipe.
        if (!is_stdin && !is_chosen && traits_of(item_.source, true, named) == 0 &&
            !named.is_regular)
            return fail(item_.source, "not a regular file, skipped (-f or -o compresses it)");
        const int error = is_stdin ? source_.open_stdin() : source_.open(item_.source);
        if (error != 0) return fail(item_.source, system_error_text(error));
        return exit_good;
    }

    int open_target()
    {
        if (is_stdout()) {
            if (run_.settings.json)
                return fail("-", "--json needs standard output for itself (-o FILE)");
            if (stdout_is_terminal() && !run_.settings.force)
                return fail("-", "compressed data isn't written to a terminal (-f forces it)");
            const int error = standard_output_.open_stdout();
            return error == 0 ? exit_good : fail("-", system_error_text(error));
        }
        if (!make_directory_of(run_, item_.source, item_.target) ||
            !may_create(run_, item_.target, &source_.traits(), replaces_))
            return exit_failed;
        const int error = file_.create(item_.target);
        return error == 0 ? exit_good : fail(item_.target, system_error_text(error));
    }

    /// Reads the start of the source.  Of a source of unknown size, up to one byte more than a
    /// block is read: if fewer come, its size is known.
    int read_start()
    {
        const uint64_t block = uint64_t{params_.block_mib} << 20;
        const uint64_t limit = run_.settings.memory_limit;
        const uint64_t most = limit != 0 ? std::min(block, limit) : block;
        const uint64_t wanted =
            source_.is_seekable() ? std::min<uint64_t>(source_.size(), sample_bytes) : most + 1;
        start_.reset(new char[static_cast<size_t>(wanted)]);
        const int error = source_.read(start_.get(), static_cast<size_t>(wanted), start_size_);
        if (error != 0) return fail(item_.source, system_error_text(error));
        if (source_.is_seekable())
            size_ = source_.size();
        else
            size_ = start_size_ < wanted ? start_size_ : QRX_UNKNOWN_SIZE;
        if (size_ == QRX_UNKNOWN_SIZE && most < block)
            return fail(item_.source, over_limit_text(qrx_compress_memory(&params_, 0), limit));
        return exit_good;
    }

    int compress()
    {
        const int status = read_start();
        if (status != exit_good) return status;
        const uint32_t threads = compressing_threads(run_, item_.source, params_, size_);
        if (run_.settings.like.empty()) detect_type();
        run_.progress.start(item_.source, size_ == QRX_UNKNOWN_SIZE ? 0 : size_);
        watcher_.progress = &run_.progress;
        return open_writer(threads);
    }

    void detect_type()
    {
        const std::string name = is_stdio(item_.source) ? "" : to_text(item_.source.filename());
        qrx_params_for_type(&params_, start_.get(), std::min(start_size_, sample_bytes),
                            name.c_str());
    }

    /// Standard output is spooled to a temporary file if it has to be read back, or if the size of
    /// the source is unknown and can't be written into the header at the end.
    int open_writer(uint32_t threads)
    {
        output_ = is_stdout() ? &standard_output_ : &file_;
        if (is_stdout() && (verifies() || (size_ == QRX_UNKNOWN_SIZE && !output_->is_seekable()))) {
            const int error = file_.create_temporary();
            if (error != 0) return fail("-", "temporary file: " + system_error_text(error));
            output_ = &file_;
        }
        qrx_options library =
            library_options(watcher_, threads, run_.settings.seals ? QRX_SEAL : 0);
        library.memory_limit = run_.settings.memory_limit;
        counter_ = {output_, &run_.progress};
        qrx_sink sink{};
        sink.struct_size = sizeof sink;
        sink.write = write_counted;
        sink.context = &counter_;
        qrx_writer* made = nullptr;
        const qrx_status result = qrx_writer_open_sink(&made, &sink, size_, &params_, &library);
        writer_.reset(made);
        return result == QRX_OK ? write_all() : fail_library(result);
    }

    int fail_library(qrx_status result) const
    {
        const bool concerns_target = result == QRX_WRITE_FAILED;
        const bool is_spool = is_stdout() && output_ == &file_;
        return fail(concerns_target ? target_name() : item_.source,
                    (concerns_target && is_spool ? "temporary file: " : "") +
                        failure_text(result, watcher_),
                    exit_status_of(result));
    }

    /// Compresses a small file with a codec from the cache.
    qrx_status write_small(qrx_codec* codec)
    {
        const size_t capacity = start_size_ + QRX_CODEC_SLACK;
        const std::unique_ptr<char[]> payload(new char[capacity]);
        size_t size = 0;
        const qrx_status result =
            qrx_codec_compress(codec, start_.get(), start_size_, payload.get(), capacity, &size);
        if (result != QRX_OK) return result;
        const uint32_t crc = qrx_crc32(0, start_.get(), start_size_);
        return qrx_writer_raw_block(writer_.get(), payload.get(), size, start_size_, &crc);
    }

    /// Writes what read_start() has read.  With a memory limit no codec is used: it would keep its
    /// tables while the next file is compressed.
    qrx_status write_start()
    {
        const bool uses_codec = start_size_ != 0 && start_size_ == size_ && size_ <= sample_bytes &&
                                run_.settings.memory_limit == 0;
        qrx_codec* codec = uses_codec ? codecs_.find(params_) : nullptr;
        return codec != nullptr ? write_small(codec)
                                : qrx_writer_write(writer_.get(), start_.get(), start_size_);
    }

    int write_all()
    {
        qrx_status result = write_start();
        start_.reset();
        uint64_t done = start_size_;
        while (result == QRX_OK && done < size_) {
            void* buffer = nullptr;
            size_t room = 0;
            result = qrx_writer_buffer(writer_.get(), &buffer, &room);
            if (result != QRX_OK) break;
            size_t got = 0;
            const size_t wanted = static_cast<size_t>(std::min<uint64_t>(room, size_ - done));
            const int error = source_.read(buffer, wanted, got);
            if (error != 0) return fail(item_.source, system_error_text(error));
            if (got == 0) break;
            result = qrx_writer_advance(writer_.get(), got);
            done += got;
        }
        if (result != QRX_OK) return fail_library(result);
        if (size_ != QRX_UNKNOWN_SIZE && done < size_)
            return fail(item_.source, "shrank while being read");
        result = qrx_writer_finish(writer_.get());
        writer_.reset();
        size_ = done;
        return result == QRX_OK ? exit_good : fail_library(result);
    }

    int finish()
    {
        if (verifies()) {
            const int status = verify();
            run_.progress.end();
            if (status != exit_good) return status;
        }
        if (is_stdout()) return finish_stdout();
        if (!is_stdio(item_.source) && source_.traits().is_regular)
            file_.take_traits(source_.traits());
        const int error = file_.finish(replaces_, run_.settings.syncs || verifies());
        return error == 0 ? exit_good : fail(item_.target, system_error_text(error));
    }

    int verify()
    {
        const qrx_source written = source_of(*output_, counter_.end);
        observer watcher;
        watcher.progress = &run_.progress;
        run_.progress.start(target_name(), size_, counter_.end);
        const uint32_t threads =
            decompressing_threads(run_, target_name(), params_, size_, written.size);
        qrx_options library = library_options(watcher, threads, 0);
        library.memory_limit = run_.settings.memory_limit;
        qrx_reader* made = nullptr;
        const qrx_status result = qrx_reader_open_source(&made, &written, &library);
        const reader_ptr reader(made);
        if (result != QRX_OK)
            return fail(target_name(), "verification: " + failure_text(result, watcher),
                        exit_status_of(result));
        if (source_.is_seekable())
            return compare_with_original(run_, target_name(), made, watcher, source_);
        const qrx_status tested = qrx_reader_test(made);
        return tested == QRX_OK
                   ? exit_good
                   : fail(target_name(), "verification: " + failure_text(tested, watcher),
                          exit_status_of(tested));
    }

    /// Copies a spooled output to standard output.
    int finish_stdout()
    {
        if (output_ == &file_) {
            std::vector<char> part(sample_bytes);
            for (uint64_t done = 0; done < counter_.end;) {
                size_t got = 0;
                int error = file_.read_at(done, part.data(), part.size(), got);
                if (error == 0 && got == 0) error = EIO; // another program has cut the file
                if (error == 0) error = standard_output_.write_at(done, part.data(), got);
                if (error != 0) return fail("-", system_error_text(error));
                done += got;
            }
        }
        const int error = standard_output_.finish(false, false);
        return error == 0 ? exit_good : fail("-", system_error_text(error));
    }

    void report(double seconds) const
    {
        const uint64_t compressed = counter_.end;
        if (run_.settings.json) {
            print_json({{"command", "compress"},
                        {"name", json_name(item_.source)},
                        {"output", is_stdout() ? "-" : json_name(item_.target)},
                        {"original_size", size_},
                        {"compressed_size", compressed},
                        {"ratio", json_ratio(compressed, size_)},
                        {"method", params_.method},
                        {"level", params_.level},
                        {"verified", verifies()},
                        {"seconds", seconds}});
        }
        run_.messages.note(item_.source, sizes_text(size_, compressed, seconds));
    }

    /// The output and the end of what has been written to it.
    struct counted_output {
        output_file* file = nullptr;
        progress_line* progress = nullptr;
        uint64_t end = 0;
    };

    static int write_counted(void* context, uint64_t offset, const void* src, size_t size)
    {
        auto& counter = *static_cast<counted_output*>(context);
        counter.end = std::max<uint64_t>(counter.end, offset + size);
        counter.progress->set_written(counter.end);
        return counter.file->write_at(offset, src, size);
    }

    const session& run_;
    const work_item& item_;
    codec_cache& codecs_;
    input_file source_;
    output_file standard_output_;
    output_file file_; // the target, or a spool
    output_file* output_ = nullptr;
    counted_output counter_;
    observer watcher_;
    writer_ptr writer_;
    qrx_params params_; // settled
    bool replaces_ = false;
    uint64_t size_ = 0;
    std::unique_ptr<char[]> start_;
    size_t start_size_ = 0;
};

} // namespace

int run_compress(const session& run)
{
    qrx_params params = run.settings.params;
    if (!run.settings.like.empty()) {
        const int status = read_like(run, params);
        if (status != exit_good) return status;
    }
    if (qrx_params_settle(&params) != QRX_OK) return exit_internal;
    codec_cache codecs;
    return for_each_item(run, renaming::add_suffix, [&](const work_item& item) {
        return compression(run, item, params, codecs).run();
    });
}

} // namespace tool
