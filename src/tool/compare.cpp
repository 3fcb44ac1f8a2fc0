#include "tool/compare.h"

#include <algorithm>
#include <cstring>

namespace tool {
namespace {

int report(const session& run, const path& name, const std::string& text, int status)
{
    run.progress.end();
    run.messages.error(name, text);
    return status;
}

} // namespace

int compare_with_original(const session& run, const path& name, qrx_reader* reader,
                          const observer& watcher, const qrx_source& original, comparison* found)
{
    comparison unused;
    if (found == nullptr) found = &unused;
    qrx_info info{};
    info.struct_size = sizeof info;
    qrx_reader_info(reader, &info);
    if (info.original_size != original.size)
        return report(run, name,
                      "differs from its original in size: " + std::to_string(info.original_size) +
                          " and " + std::to_string(original.size) + " bytes",
                      exit_damaged);
    std::vector<char> decoded(part_bytes);
    std::vector<char> source(part_bytes);
    uint64_t done = 0;
    do { // once for an empty original too, whose seal is checked
        size_t got = 0;
        const qrx_status result = qrx_reader_read(reader, done, decoded.data(), part_bytes, &got);
        if (result != QRX_OK)
            return report(run, name, failure_text(result, watcher, info), exit_status_of(result));
        size_t read = 0;
        const int error = original.read(original.context, done, source.data(), got, &read);
        if (error != 0)
            return report(run, name, "original: " + system_error_text(error), exit_failed);
        const size_t common = std::min(got, read);
        const auto different =
            std::mismatch(decoded.data(), decoded.data() + common, source.data()).first;
        if (different != decoded.data() + got) {
            const auto offset = done + static_cast<uint64_t>(different - decoded.data());
            found->first_difference = offset;
            return report(run, name, "differs from its original at byte " + std::to_string(offset),
                          exit_damaged);
        }
        done += got;
    } while (done < info.original_size);
    found->is_equal = true;
    return exit_good;
}

int compare_with_original(const session& run, const path& name, qrx_reader* reader,
                          const observer& watcher, const input_file& original)
{
    return compare_with_original(run, name, reader, watcher, source_of(original));
}

} // namespace tool
