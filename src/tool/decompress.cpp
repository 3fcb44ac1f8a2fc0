// Decompresses and tests files and standard input.
#include "tool/commands.h"
#include "tool/compare.h"
#include "tool/describe.h"
#include "tool/targets.h"
#include "tool/write_range.h"

#include <algorithm>
#include <chrono>

namespace tool {
namespace {

class decompression {
  public:
    decompression(const session& run, const work_item& item) : run_(run), item_(item) {}

    int run()
    {
        const auto started = std::chrono::steady_clock::now();
        if (!may_remove(run_, item_) || !may_use_stdout()) return exit_failed;
        // A file of this name that isn't a .qrx file is a damaged one.
        const bool passes_others =
            run_.settings.force && run_.settings.to_stdout && !has_suffix(item_.source);
        qrx_status opened = QRX_OK;
        int status = input_.open(run_, item_.source, 0, passes_others ? &opened : nullptr);
        if (opened == QRX_NOT_QRX) return pass_through();
        if (status == exit_good) status = open_target();
        if (status == exit_good) status = write();
        if (status != exit_good) return status;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
        report(seconds.count());
        return run_.settings.removes_source
                   ? remove_source(run_, item_.source, input_.input.file().traits())
                   : exit_good;
    }

  private:
    bool is_stdout() const { return item_.target.empty(); }
    path target_name() const { return is_stdout() ? path("-") : item_.target; }
    bool verifies() const { return run_.settings.verifies || run_.settings.removes_source; }

    int fail(const path& name, const std::string& text, int status = exit_failed) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    /// Standard output can't take the content and an object, and can't be read back.
    bool may_use_stdout() const
    {
        if (!is_stdout()) return true;
        const char* reason = nullptr;
        if (run_.settings.json)
            reason = "--json needs standard output for itself (-o FILE)";
        else if (run_.settings.verifies)
            reason = "--verify needs an output file to read back";
        if (reason == nullptr) return true;
        fail("-", reason);
        return false;
    }

    int open_target()
    {
        if (is_stdout()) {
            const int error = target_.open_stdout();
            return error == 0 ? exit_good : fail("-", system_error_text(error));
        }
        const file_traits& source = input_.input.file().traits();
        if (!make_directory_of(run_, item_.source, item_.target) ||
            !may_create(run_, item_.target, &source, replaces_))
            return exit_failed;
        const int error = target_.create(item_.target);
        return error == 0 ? exit_good : fail(item_.target, system_error_text(error));
    }

    int write()
    {
        destination dest{target_, target_name()};
        const int status = write_range(run_, item_.source, input_, {}, dest);
        // Standard output keeps the bytes before damage.
        if (status == exit_good || is_stdout()) return std::max(status, finish());
        return status;
    }

    int finish()
    {
        if (is_stdout()) {
            const int error = target_.finish(false, false);
            return error == 0 ? exit_good : fail("-", system_error_text(error));
        }
        if (verifies()) {
            const int status = verify();
            if (status != exit_good) return status;
        }
        if (!is_stdio(item_.source)) target_.take_traits(input_.input.file().traits());
        const int error = target_.finish(replaces_, run_.settings.syncs || verifies());
        return error == 0 ? exit_good : fail(item_.target, system_error_text(error));
    }

    /// Compares the output file with the compressed one.
    int verify()
    {
        run_.progress.start(item_.source, input_.info.original_size, input_.info.file_size);
        const int status =
            compare_with_original(run_, item_.source, input_.reader.get(), input_.watcher,
                                  source_of(target_, input_.info.original_size));
        run_.progress.end();
        return status;
    }

    /// Copies an input that isn't a .qrx file.
    int pass_through()
    {
        int error = target_.open_stdout();
        const qrx_source source = input_.input.source();
        std::vector<char> part(part_bytes);
        for (uint64_t done = 0; error == 0;) {
            size_t got = 0;
            error = done < source.size
                        ? source.read(source.context, done, part.data(), part.size(), &got)
                        : input_.input.read_rest(part.data(), part.size(), got);
            if (error == 0 && got == 0) break;
            if (error == 0) error = target_.write_at(done, part.data(), got);
            done += got;
        }
        if (error == 0) error = target_.finish(false, false);
        return error == 0 ? exit_good : fail(item_.source, system_error_text(error));
    }

    void report(double seconds) const
    {
        const qrx_info& info = input_.info;
        if (run_.settings.json) {
            print_json({{"command", "decompress"},
                        {"name", json_name(item_.source)},
                        {"output", json_name(target_name())},
                        {"original_size", info.original_size},
                        {"compressed_size", info.file_size},
                        {"ratio", json_ratio(info.file_size, info.original_size)},
                        {"sealed", info.is_sealed != 0},
                        {"seconds", seconds}});
        }
        std::string text = sizes_text(info.original_size, info.file_size, seconds);
        if (info.is_sealed == 0) text += ", not sealed";
        run_.messages.note(item_.source, text);
    }

    const session& run_;
    const work_item& item_;
    open_reader input_;
    output_file target_;
    bool replaces_ = false;
};

void report_test(const session& run, const work_item& item, const open_reader& input,
                 qrx_status result)
{
    const qrx_info& info = input.info;
    if (run.settings.json) {
        json faults = json::array();
        for (const qrx_event& fault : input.watcher.events)
            faults.push_back(json_fault(fault, info));
        print_json({{"command", "test"},
                    {"name", json_name(item.source)},
                    {"damaged", result != QRX_OK},
                    {"sealed", info.is_sealed != 0},
                    {"original_size", info.original_size},
                    {"faults", std::move(faults)}});
    }
    for (const qrx_event& fault : input.watcher.events)
        run.messages.error(item.source, fault_text(fault, info));
    if (input.watcher.dropped != 0)
        run.messages.error(item.source,
                           "and " + std::to_string(input.watcher.dropped) + " more faults");
    if (result != QRX_OK && input.watcher.events.empty())
        run.messages.error(item.source, qrx_status_text(result));
    if (result == QRX_OK && !run.settings.json && !run.settings.is_quiet())
        print_line(shown_name(item.source) +
                   (info.is_sealed != 0 ? ": good" : ": not sealed; no damage noticed"));
}

int test_item(const session& run, const work_item& item)
{
    open_reader input;
    const int status = input.open(run, item.source, 0);
    if (status != exit_good) return status;
    run.progress.start(item.source, input.info.original_size, input.info.file_size);
    input.watcher.forget(); // the test reports faults of the layout again
    const qrx_status result = qrx_reader_test(input.reader.get());
    run.progress.end();
    report_test(run, item, input, result);
    return exit_status_of(result);
}

} // namespace

int run_decompress(const session& run)
{
    return for_each_item(run, renaming::remove_suffix, [&](const work_item& item) {
        return run.settings.what == command::test ? test_item(run, item)
                                                  : decompression(run, item).run();
    });
}

} // namespace tool
