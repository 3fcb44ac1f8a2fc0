// Saves what can be read from damaged files.
//
// Lost bytes are zeros in the output, except in a block with a damaged payload: all of it counts as
// lost, but the output keeps what the decoder produced, since the bytes before the damage are
// right. If a payload is cut off or partly unreadable, the start of its block is recovered as far
// as the known bytes determine it.
#include "tool/block_prefix.h"
#include "tool/commands.h"
#include "tool/json.h"
#include "tool/targets.h"
#include "tool/tolerant_source.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>

namespace tool {
namespace {

constexpr size_t zero_bytes = size_t{1} << 16;

/// A record of which the end of the file cuts off a part.
struct cut_record {
    uint64_t block = QRX_NO_BLOCK;
    uint64_t offset = 0; // of the payload
    uint64_t size = 0;   // of the payload
};

class recovery {
  public:
    recovery(const session& run, const path& source, const path& target)
        : run_(run), source_(source), target_(target)
    {
    }

    int run()
    {
        int status = open_source();
        if (status == exit_good) status = open_target();
        if (status == exit_good) status = copy();
        run_.progress.end();
        if (status != exit_good) return status;
        if (saves_nothing()) {
            report("");
            return fail(source_, "nothing can be recovered", exit_damaged);
        }
        status = finish();
        if (status == exit_good) report(target_);
        return status == exit_good && !is_good() ? exit_damaged : status;
    }

  private:
    int fail(const path& name, const std::string& text, int status = exit_failed) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    int fail(qrx_status result) const
    {
        return fail(source_, failure_text(result, input_.watcher, input_.info),
                    exit_status_of(result));
    }

    const qrx_info& info() const { return input_.info; }

    int open_source()
    {
        const int error = input_.input.open(run_, source_, true);
        if (error != 0) return fail(source_, input_.input.error_text(error));
        tolerant_.emplace(input_.input.source());
        const int status =
            input_.open_source(run_, source_, tolerant_->source(), QRX_KEEP_DAMAGED | QRX_SEARCH);
        if (status == exit_good) find_cut();
        return status;
    }

    int open_target()
    {
        if (is_stdio(target_)) {
            if (run_.settings.json) return fail("-", "--json needs an output file");
            const int error = output_.open_stdout();
            return error == 0 ? exit_good : fail("-", system_error_text(error));
        }
        const file_traits& traits = input_.input.file().traits();
        if (!make_directory_of(run_, source_, target_) ||
            !may_create(run_, target_, &traits, replaces_))
            return exit_failed;
        const int error = output_.create(target_);
        return error == 0 ? exit_good : fail(target_, system_error_text(error));
    }

    qrx_block_info describe(uint64_t block) const
    {
        qrx_block_info found{};
        found.struct_size = sizeof found;
        qrx_reader_block_info(input_.reader.get(), block, &found);
        return found;
    }

    /// Finds the record that is cut off: the one after the last complete record.
    void find_cut()
    {
        const bool is_cut_or_headless =
            info().layout == QRX_TRUNCATED || info().layout == QRX_NOT_QRX;
        if (!is_cut_or_headless) return;
        uint64_t end = file_header_bytes;
        uint64_t left = info().blocks_found; // the header can claim billions of blocks
        for (uint64_t block = 0; left != 0 && block < info().block_count; ++block) {
            const qrx_block_info found = describe(block);
            left -= found.is_found;
            if (found.is_found != 0) end = std::max(end, found.offset + found.payload_size);
        }
        unsigned char head[record_head_bytes];
        size_t got = 0;
        const int error =
            tolerant_->read(end, reinterpret_cast<char*>(head), record_head_bytes, got);
        if (error != 0 || got != record_head_bytes) return;
        const uint64_t size =
            head[0] | uint32_t{head[1]} << 8 | uint32_t{head[2]} << 16 | uint32_t{head[3]} << 24;
        const uint64_t distance = head[4] >> 1;
        const uint64_t block = info().blocks_found + ((head[4] & 1) != 0 ? -distance : distance);
        if (block >= info().block_count) return;
        const qrx_block_info expected = describe(block);
        const bool is_cut = end + record_head_bytes + size > info().file_size;
        const bool is_possible = size <= expected.length && expected.length <= INT32_MAX;
        if (expected.is_found == 0 && is_possible && is_cut)
            cut_ = {block, end + record_head_bytes, size};
    }

    int copy()
    {
        run_.progress.start(source_, info().original_size, info().file_size);
        if (info().block_count == 0) { // checks the seal
            size_t got = 0;
            const qrx_status result = qrx_reader_read(input_.reader.get(), 0, nullptr, 0, &got);
            return result == QRX_OK ? exit_good : fail(result);
        }
        uint64_t left = info().blocks_found + (cut_.block != QRX_NO_BLOCK ? 1 : 0);
        uint64_t block = 0;
        for (; left != 0 && block < info().block_count; ++block) {
            left -= describe(block).is_found != 0 || block == cut_.block ? 1 : 0;
            const int status = copy_block(block);
            if (status != exit_good) return status;
        }
        if (block < info().block_count) lose_from(block);
        return saves_nothing() ? exit_good : fill_end();
    }

    void lose_from(uint64_t block)
    {
        note(QRX_BLOCK_MISSING, block);
        input_.watcher.events.back().wanted = info().block_count - block;
        lose({describe(block).original_offset, info().original_size});
    }

    int copy_block(uint64_t block)
    {
        const qrx_block_info place = describe(block);
        const byte_range extent{place.original_offset, place.original_offset + place.length};
        if (place.is_found == 0) {
            if (block == cut_.block) {
                note(QRX_TRUNCATED, block, cut_.offset);
                return save_prefix(extent, cut_.offset, cut_.size);
            }
            note_missing(block);
            lose(extent);
            return exit_good;
        }
        input_.watcher.watch(block);
        byte_range part = first_part(extent);
        const qrx_status result = decode(part); // reads the whole payload
        if (result != QRX_OK) return fail(result);
        const byte_range payload{place.offset, place.offset + place.payload_size};
        const byte_range bad = tolerant_->first_unreadable(payload);
        if (bad.first < bad.last) {
            note(QRX_READ_FAILED, block, bad.first);
            if (place.is_stored == 0 || input_.params.filter != QRX_FILTER_NONE)
                return save_prefix(extent, place.offset, place.payload_size);
            lose_unreadable(extent, payload);
        } else if (input_.watcher.has_watched_fault) {
            lose(extent);
        }
        for (;;) {
            const int status = write(part, part_.data());
            if (status != exit_good || part.last == extent.last) return status;
            part = first_part({part.last, extent.last});
            const qrx_status decoded = decode(part);
            if (decoded != QRX_OK) return fail(decoded);
        }
    }

    static byte_range first_part(const byte_range& range)
    {
        return {range.first, std::min(range.last, range.first + part_bytes)};
    }

    qrx_status decode(const byte_range& range)
    {
        size_t got = 0;
        return qrx_reader_read(input_.reader.get(), range.first, part_.data(),
                               static_cast<size_t>(range.last - range.first), &got);
    }

    /// Saves the start of a block of whose payload only the first bytes are known, up to the end of
    /// the file or to an unreadable part.
    int save_prefix(const byte_range& extent, uint64_t offset, uint64_t size)
    {
        std::vector<char> block;
        size_t certain = 0;
        qrx_status result = QRX_NO_MEMORY;
        try {
            block.resize(static_cast<size_t>(extent.last - extent.first));
            result = decode_start(offset, size, block, certain);
        } catch (const std::bad_alloc&) { // other blocks can still be recovered
        }
        if (result != QRX_OK) {
            certain = 0;
            run_.messages.warn(source_, "the start of bytes " + std::to_string(extent.first) + ":" +
                                            std::to_string(extent.last) +
                                            " can't be saved: " + qrx_status_text(result));
        }
        lose({extent.first + certain, extent.last});
        return write({extent.first, extent.first + certain}, block.data());
    }

    qrx_status decode_start(uint64_t offset, uint64_t size, std::vector<char>& block,
                            size_t& certain)
    {
        partial_payload payload;
        payload.bytes.resize(static_cast<size_t>(size));
        const byte_range bad = tolerant_->first_unreadable({offset, offset + size});
        const uint64_t end = std::min(bad.first, info().file_size);
        const size_t wanted = static_cast<size_t>(end - std::min(offset, end));
        const int error = tolerant_->read(offset, payload.bytes.data(), wanted, payload.known);
        return error != 0 ? QRX_NO_MEMORY : decode_prefix(input_.params, payload, block, certain);
    }

    /// The payload of a stored block is the block itself: only its unreadable bytes are lost.
    void lose_unreadable(const byte_range& extent, const byte_range& payload)
    {
        for (uint64_t position = payload.first; position < payload.last;) {
            const byte_range bad = tolerant_->first_unreadable({position, payload.last});
            const uint64_t shift = extent.first - payload.first; // may wrap
            if (bad.first < bad.last) lose({bad.first + shift, bad.last + shift});
            position = bad.last;
        }
    }

    void lose(const byte_range& range)
    {
        if (range.first >= range.last) return;
        if (!lost_.empty() && lost_.back().last == range.first)
            lost_.back().last = range.last;
        else
            lost_.push_back(range);
        lost_bytes_ += range.last - range.first;
    }

    void note(qrx_status what, uint64_t block, uint64_t offset = 0)
    {
        qrx_event fault{};
        fault.struct_size = sizeof fault;
        fault.what = what;
        fault.block = block;
        fault.offset = offset;
        input_.watcher.events.push_back(fault);
    }

    /// Notes a missing block.  Consecutive ones are one fault.
    void note_missing(uint64_t block)
    {
        auto& faults = input_.watcher.events;
        if (faults.empty() || faults.back().what != QRX_BLOCK_MISSING ||
            faults.back().block + faults.back().wanted != block) {
            note(QRX_BLOCK_MISSING, block);
        }
        ++faults.back().wanted;
    }

    /// Writes a part of the original.  Skipped bytes before it become zeros.
    int write(const byte_range& range, const char* data)
    {
        const int status = leaves_holes() ? exit_good : write_zeros(range.first);
        if (status != exit_good || range.first == range.last) return status;
        const auto size = static_cast<size_t>(range.last - range.first);
        const int error = output_.write_at(range.first, data, size);
        if (error != 0) return fail(target_, system_error_text(error));
        written_ = range.last;
        return exit_good;
    }

    /// True for files, which have zeros where nothing was written.  Standard output may have held
    /// other content there.
    bool leaves_holes() const { return !is_stdio(target_); }

    int write_zeros(uint64_t end)
    {
        static const std::vector<char> zeros(zero_bytes);
        while (written_ < end) {
            const size_t part =
                static_cast<size_t>(std::min<uint64_t>(zeros.size(), end - written_));
            const int error = output_.write_at(written_, zeros.data(), part);
            if (error != 0) return fail(target_, system_error_text(error));
            written_ += part;
        }
        return exit_good;
    }

    /// Extends the output to the size of the original; in a file, by writing the last byte.
    int fill_end()
    {
        const uint64_t size = info().original_size;
        if (!leaves_holes() || written_ >= size) return write_zeros(size);
        const char zero = 0;
        const int error = output_.write_at(size - 1, &zero, 1);
        if (error == EFBIG)
            run_.messages.warn(target_, "can't grow to " + std::to_string(size) +
                                            " bytes: the zeros at its end are left out");
        else if (error != 0)
            return fail(target_, system_error_text(error));
        return exit_good;
    }

    int finish()
    {
        if (is_stdio(target_)) {
            const int error = output_.finish(false, false);
            return error == 0 ? exit_good : fail("-", system_error_text(error));
        }
        if (!is_stdio(source_)) output_.take_traits(input_.input.file().traits());
        const int error = output_.finish(replaces_, run_.settings.syncs);
        return error == 0 ? exit_good : fail(target_, system_error_text(error));
    }

    bool saves_nothing() const { return lost_bytes_ != 0 && lost_bytes_ == info().original_size; }

    bool has_fault(qrx_status what) const
    {
        const auto& faults = input_.watcher.events;
        return std::any_of(faults.begin(), faults.end(),
                           [&](const qrx_event& fault) { return fault.what == what; });
    }

    /// True if the whole original was recovered.  If there is damage, only the seal proves that.
    bool is_good() const
    {
        if (lost_bytes_ != 0 || has_fault(QRX_CHECKSUM_MISMATCH)) return false;
        return info().is_sealed != 0 || (info().layout == QRX_OK && input_.watcher.events.empty() &&
                                         !tolerant_->has_unreadable());
    }

    void report(const path& output)
    {
        auto& faults = input_.watcher.events;
        if (info().layout != QRX_OK && !has_fault(info().layout)) {
            note(info().layout, QRX_NO_BLOCK);
            std::rotate(faults.begin(), faults.end() - 1, faults.end());
        }
        if (run_.settings.json)
            report_json(output);
        else
            report_lost();
        report_faults();
        if (output.empty()) return;
        if (has_fault(QRX_CHECKSUM_MISMATCH))
            run_.messages.error(source_, "all blocks decode, but the content doesn't match the "
                                         "seal: some bytes are wrong, position unknown");
        else if (lost_bytes_ == 0 && !is_good())
            run_.messages.error(source_, "all blocks decode, but without a seal the content "
                                         "can't be checked");
        run_.messages.note(source_, "recovered " +
                                        std::to_string(info().original_size - lost_bytes_) +
                                        " of " + std::to_string(info().original_size) + " bytes");
    }

    void report_faults() const
    {
        for (const qrx_event& fault : input_.watcher.events) {
            const bool is_header = fault.what == QRX_NOT_QRX;
            const std::string text =
                is_header
                    ? "the header is damaged; it was reconstructed from the records. If records "
                      "before the first one found are missing, all offsets are too low"
                    : fault_text(fault, info());
            if (is_good())
                run_.messages.warn(source_, text);
            else if (fault.what != QRX_CHECKSUM_MISMATCH)
                run_.messages.error(source_, text);
        }
    }

    /// Lists the lost ranges on standard output, unless the content goes there.
    void report_lost() const
    {
        for (const byte_range& range : lost_) {
            const std::string text = "lost " + std::to_string(range.first) + ":" +
                                     std::to_string(range.last) + " (" +
                                     size_text(range.last - range.first) + ")";
            if (is_stdio(target_))
                run_.messages.error(source_, text);
            else
                print_line(printable(source_) + ": " + text);
        }
    }

    void report_json(const path& output) const
    {
        json lost = json::array();
        for (const byte_range& range : lost_)
            lost.push_back({{"first", range.first}, {"last", range.last}});
        json faults = json::array();
        for (const qrx_event& fault : input_.watcher.events)
            faults.push_back(json_fault(fault, info()));
        print_json({{"command", "recover"},
                    {"name", json_name(source_)},
                    {"output", output.empty() ? json(nullptr) : json(json_name(output))},
                    {"damaged", !is_good()},
                    {"sealed", info().is_sealed != 0},
                    {"original_size", info().original_size},
                    {"recovered", info().original_size - lost_bytes_},
                    {"lost", std::move(lost)},
                    {"faults", std::move(faults)}});
    }

    const session& run_;
    const path source_;
    const path target_; // "-" for standard output
    std::optional<tolerant_source> tolerant_;
    open_reader input_;
    cut_record cut_;
    output_file output_;
    bool replaces_ = false;
    std::vector<char> part_ = std::vector<char>(part_bytes);
    uint64_t written_ = 0; // end of the last write
    std::vector<byte_range> lost_;
    uint64_t lost_bytes_ = 0;
};

path target_of(const options& settings, const path& source)
{
    if (!settings.output.empty()) return settings.output;
    if (is_stdio(source)) return "-";
    path target = settings.directory.empty() ? source : settings.directory / source.filename();
    if (has_suffix(source)) return target.replace_extension();
    return target += ".recovered";
}

} // namespace

int run_recover(const session& run)
{
    return for_each_operand(run, [&](const path& name) {
        return recovery(run, name, target_of(run.settings, name)).run();
    });
}

} // namespace tool
