#include "tool/write_range.h"

#include <algorithm>

namespace tool {
namespace {

/// Damaged headers can claim longer blocks, but those have no records.
constexpr uint64_t max_block = uint64_t{2047} << 20;

/// Largest number of bytes per call that decodes several blocks.
constexpr uint64_t large_part = uint64_t{1} << 30;

class range_writer {
  public:
    range_writer(const session& run, const path& name, open_reader& input, byte_range range,
                 destination& dest)
        : run_(run), name_(name), input_(input), info_(input.info), dest_(dest)
    {
        range_.first = std::min(range.first, info_.original_size);
        range_.last = std::min(range.last, info_.original_size);
    }

    int run()
    {
        const bool is_whole = range_.first == 0 && range_.last == info_.original_size;
        if (is_whole)
            run_.progress.start(name_, info_.original_size, info_.file_size);
        else
            input_.watcher.progress = nullptr; // it counts from the start of the file
        const int status = range_.first == range_.last && !is_whole ? exit_good : write();
        run_.progress.end();
        if (status != exit_good || !is_whole || info_.layout == QRX_OK) return status;
        return fail_damaged(info_.layout);
    }

  private:
    /// True if the reader may decode ahead, by up to one block more than it has threads: only while
    /// all of these are in the range.
    bool may_read_ahead(uint64_t position) const
    {
        const bool has_last_block =
            info_.block_count == 0 || range_.last > (info_.block_count - 1) * info_.block_size;
        return has_last_block ||
               (range_.last - position) / info_.block_size > input_.threads + uint64_t{1};
    }

    /// Returns the number of bytes from `position` on to decode at a time.
    uint64_t part_at(uint64_t position) const
    {
        const bool is_limited = run_.settings.memory_limit != 0 || info_.block_size > max_block;
        // Otherwise whole blocks are decoded in place, and those of one call in parallel.
        const bool is_small = is_limited || may_read_ahead(position);
        return std::min(range_.last - position, is_small ? part_bytes : large_part);
    }

    int write()
    {
        std::unique_ptr<char[]> buffer;
        uint64_t room = 0;
        uint64_t position = range_.first;
        qrx_status seal = QRX_OK;
        do { // once for an empty original too, whose seal is checked
            const uint64_t part = part_at(position);
            if (part > room || !buffer) {
                buffer.reset();
                buffer.reset(new char[static_cast<size_t>(part)]);
                room = part;
            }
            if (!may_read_ahead(position)) stop_reading_ahead(position);
            size_t got = 0;
            const qrx_status result = qrx_reader_read(input_.reader.get(), position, buffer.get(),
                                                      static_cast<size_t>(part), &got);
            const int error = dest_.file.write_at(dest_.offset, buffer.get(), got);
            if (error != 0) return fail(dest_.name, system_error_text(error), exit_failed);
            dest_.offset += got;
            position += got;
            if (result == QRX_CHECKSUM_MISMATCH)
                seal = result; // reported with the first part of the last block
            else if (result != QRX_OK)
                return fail_damaged(result);
        } while (position < range_.last);
        return seal == QRX_OK ? exit_good : fail_damaged(seal);
    }

    /// A reader decodes ahead while each call starts where the previous one ended.  An empty call
    /// elsewhere prevents that for the next call.
    void stop_reading_ahead(uint64_t position)
    {
        size_t got = 0;
        qrx_reader_read(input_.reader.get(), position != 0 ? 0 : 1, nullptr, 0, &got);
    }

    int fail_damaged(qrx_status result) const
    {
        const int status = exit_status_of(result);
        std::string text = failure_text(result, input_.watcher, info_);
        if (status == exit_damaged && !is_stdio(dest_.name))
            text += " (qrx recover saves the rest)";
        return fail(name_, text, status);
    }

    int fail(const path& name, const std::string& text, int status) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    const session& run_;
    const path& name_;
    open_reader& input_;
    const qrx_info& info_;
    byte_range range_;
    destination& dest_;
};

} // namespace

int write_range(const session& run, const path& name, open_reader& input, byte_range range,
                destination& dest)
{
    return range_writer(run, name, input, range, dest).run();
}

} // namespace tool
