// Compares files with their originals.
#include "tool/commands.h"
#include "tool/compare.h"
#include "tool/describe.h"
#include "tool/targets.h"

#include <algorithm>

namespace tool {
namespace {

class verification {
  public:
    verification(const session& run, const work_item& item, const path& original_name)
        : run_(run), item_(item), original_name_(original_name)
    {
    }

    int run()
    {
        int status = input_.open(run_, item_.source, 0);
        if (status == exit_good) status = open_original();
        if (status == exit_good) status = compare();
        return status;
    }

  private:
    int open_original()
    {
        const int error = original_.open(run_, original_name_, true);
        if (error == 0) return exit_good;
        run_.messages.error(original_name_, original_.error_text(error));
        return exit_failed;
    }

    int compare()
    {
        const qrx_info& info = input_.info;
        run_.progress.start(item_.source, info.original_size, info.file_size);
        comparison found;
        int status = compare_with_original(run_, item_.source, input_.reader.get(), input_.watcher,
                                           original_.source(), &found);
        run_.progress.end();
        if (status == exit_failed) return status;
        if (status == exit_good && info.layout != QRX_OK) {
            add_layout_faults(input_);
            report_faults(run_, item_.source, input_);
            status = exit_damaged;
        }
        if (run_.settings.json && !found.is_equal && !find_all_faults())
            return std::max<int>(status, exit_failed);
        report(found);
        return status;
    }

    /// Decodes the whole file, since the comparison has ended early.  Reports a failure to do so.
    bool find_all_faults()
    {
        run_.progress.start(item_.source, input_.info.original_size, input_.info.file_size);
        input_.watcher.forget();
        const qrx_status tested = qrx_reader_test(input_.reader.get());
        run_.progress.end();
        if (exit_status_of(tested) != exit_failed) return true;
        run_.messages.error(item_.source, failure_text(tested, input_.watcher, input_.info));
        return false;
    }

    void report(const comparison& found) const
    {
        const bool is_sealed = input_.info.is_sealed != 0;
        if (run_.settings.json) {
            print_json({{"command", "verify"},
                        {"name", json_name(item_.source)},
                        {"original", json_name(original_name_)},
                        {"equal", found.is_equal},
                        {"first_difference",
                         found.first_difference ? json(*found.first_difference) : json(nullptr)},
                        {"original_size", input_.info.original_size},
                        {"compared_size", original_.size()},
                        {"sealed", is_sealed},
                        {"faults", json_faults(input_)}});
        } else if (found.is_equal && !run_.settings.is_quiet()) {
            print_line(shown_name(item_.source) + ": equal to " + shown_name(original_name_));
        }
        if (!is_sealed) run_.messages.note(item_.source, "not sealed");
    }

    const session& run_;
    const work_item& item_;
    const path& original_name_;
    open_reader input_;
    compressed_input original_;
};

} // namespace

int run_verify(const session& run)
{
    return for_each_item(run, renaming::remove_suffix, [&](const work_item& item) {
        const path original_name = item.target.empty() ? path("-") : item.target;
        if (!is_stdio(item.source) || !is_stdio(original_name))
            return verification(run, item, original_name).run();
        run.messages.error("-", "needs the name of its original (--against)");
        return static_cast<int>(exit_failed);
    });
}

} // namespace tool
