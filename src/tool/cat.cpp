// Writes files or ranges of them to standard output.
#include "tool/commands.h"
#include "tool/targets.h"
#include "tool/write_range.h"

#include <algorithm>

namespace tool {
namespace {

int cat_file(const session& run, const path& name, destination& dest)
{
    open_reader input;
    const int status = input.open(run, name, 0);
    return status != exit_good ? status : write_range(run, name, input, run.settings.range, dest);
}

} // namespace

int run_cat(const session& run)
{
    output_file standard_output;
    destination dest{standard_output, "-"};
    int error = standard_output.open_stdout();
    if (error != 0) {
        run.messages.error("-", system_error_text(error));
        return exit_failed;
    }
    const int status = for_each_item(run, renaming::remove_suffix, [&](const work_item& item) {
        return cat_file(run, item.source, dest);
    });
    error = standard_output.finish(false, false);
    if (error == 0) return status;
    run.messages.error("-", system_error_text(error));
    return std::max<int>(status, exit_failed);
}

} // namespace tool
