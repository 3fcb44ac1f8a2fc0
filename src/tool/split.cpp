// Splits files into pieces at block boundaries.  Blocks are copied as they are.
//
// The seal of a piece needs the content of its blocks.  So a sealed file is decoded first, which
// also checks it: no piece of a damaged file gets a valid seal.
#include "tool/commands.h"
#include "tool/json.h"
#include "tool/piece_name.h"
#include "tool/raw_output.h"
#include "tool/targets.h"

#include <algorithm>

namespace tool {
namespace {

/// Number of pieces without -n and --blocks.
constexpr uint64_t default_pieces = 2;

struct piece {
    path name;
    bool replaces = false;
    uint64_t first_block = 0;
    uint64_t last_block = 0; // the one after the last
    uint64_t compressed_size = 0;
};

std::string counted(uint64_t count, const char* what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

class splitting {
  public:
    splitting(const session& run, const path& source) : run_(run), source_(source) {}

    int run()
    {
        int status = open_for_copy(run_, source_, input_);
        if (status == exit_good) status = plan();
        if (status == exit_good && seals()) status = sum_blocks();
        if (status == exit_good) status = write_all();
        run_.progress.end();
        if (status == exit_good) report();
        return status;
    }

  private:
    const qrx_info& info() const { return input_.info; }
    bool seals() const { return info().is_sealed != 0 && run_.settings.seals; }
    uint64_t offset_of(uint64_t block) const { return start_of(block, info()); }

    int fail(const path& name, const std::string& text, int status = exit_failed) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    path stem() const
    {
        const options& settings = run_.settings;
        path name = settings.output.empty() ? source_ : settings.output;
        if (settings.output.empty() && !settings.directory.empty())
            name = settings.directory / source_.filename();
        return has_suffix(name) ? name.replace_extension() : name;
    }

    /// Plans the pieces: of equal size, give or take a block, or of a given number of blocks.
    int plan()
    {
        const options& settings = run_.settings;
        const bool is_unnamed =
            settings.output.empty() ? is_stdio(source_) : is_stdio(settings.output);
        if (is_unnamed) return fail("-", "pieces need a name (-o NAME)");
        if (!stem().has_filename()) return fail(stem(), "is a directory: pieces need a name");
        const uint64_t blocks = info().block_count;
        const uint64_t size = settings.piece_blocks;
        const uint64_t wanted = settings.piece_count != 0 ? settings.piece_count : default_pieces;
        const uint64_t most = std::max<uint64_t>(blocks, 1);
        const uint64_t count =
            size != 0 ? std::max<uint64_t>(blocks / size + (blocks % size != 0 ? 1 : 0), 1)
                      : std::min(wanted, most);
        if (size == 0 && count < settings.piece_count)
            run_.messages.warn(source_,
                               "has " + counted(blocks, "block") + ": " + counted(count, "piece"));
        for (uint64_t index = 0; index < count; ++index) {
            piece next{name_of({stem(), index + 1, count})};
            next.first_block = size != 0 ? index * size : share_of(index, count);
            next.last_block =
                size != 0 ? std::min(next.first_block + size, blocks) : share_of(index + 1, count);
            if (!make_directory_of(run_, source_, next.name) ||
                !may_create(run_, next.name, &input_.input.file().traits(), next.replaces))
                return exit_failed;
            pieces_.push_back(std::move(next));
        }
        return exit_good;
    }

    /// Returns the first block of a piece; the larger pieces come first.
    uint64_t share_of(uint64_t index, uint64_t count) const
    {
        const uint64_t blocks = info().block_count;
        return index * (blocks / count) + std::min(index, blocks % count);
    }

    /// Decodes all blocks, which checks them, and computes their CRC-32.
    int sum_blocks()
    {
        run_.progress.start(source_, info().original_size, info().file_size);
        std::vector<char> part(part_bytes);
        uint64_t done = 0;
        do { // once even for an empty original, to check its seal
            const auto block = static_cast<size_t>(done / info().block_size);
            const uint64_t left = offset_of(block + 1) - done;
            size_t got = 0;
            const qrx_status result =
                qrx_reader_read(input_.reader.get(), done, part.data(),
                                static_cast<size_t>(std::min<uint64_t>(left, part_bytes)), &got);
            if (result != QRX_OK) return fail_read(result);
            if (got != 0) {
                if (block == sums_.size()) sums_.push_back(0);
                sums_[block] = qrx_crc32(sums_[block], part.data(), got);
            }
            done += got;
        } while (done < info().original_size);
        return reopen();
    }

    /// Reopens the file, which frees the reader's buffers of decoded blocks.
    int reopen()
    {
        const qrx_source source = input_.input.source();
        const qrx_options library = library_options(input_.watcher, 0, 0);
        qrx_reader* made = nullptr;
        const qrx_status result = qrx_reader_open_source(&made, &source, &library);
        input_.reader.reset(made);
        return result == QRX_OK ? exit_good : fail_read(result);
    }

    int fail_read(qrx_status result) const
    {
        const int status = exit_status_of(result);
        std::string text = failure_text(result, input_.watcher, info());
        if (status == exit_damaged) text += " (qrx recover saves the rest)";
        return fail(source_, text, status);
    }

    int write_all()
    {
        run_.progress.start(source_, info().original_size, info().file_size);
        for (size_t index = 0; index < pieces_.size(); ++index) {
            const int status = write(pieces_[index]);
            if (status == exit_good) continue;
            if (index != 0)
                run_.messages.error(source_, "only " + std::to_string(index) + " of " +
                                                 std::to_string(pieces_.size()) +
                                                 " pieces written, up to " +
                                                 printable(pieces_[index - 1].name));
            return status;
        }
        return exit_good;
    }

    int write(piece& part)
    {
        raw_output output(run_);
        int status = output.create(part.name);
        const uint64_t size = offset_of(part.last_block) - offset_of(part.first_block);
        if (status == exit_good) status = output.start(input_.params, size, seals());
        for (uint64_t block = part.first_block; block < part.last_block; ++block) {
            if (status != exit_good) break;
            const uint32_t* sum = seals() ? &sums_[static_cast<size_t>(block)] : nullptr;
            status = output.copy(source_, input_, block, sum);
            run_.progress.advance(offset_of(block + 1));
        }
        if (status == exit_good) status = output.end();
        part.compressed_size = output.size();
        if (status != exit_good) return status;
        return output.finish(input_.input.file().traits(), part.replaces);
    }

    void report() const
    {
        json list = json::array();
        for (const piece& part : pieces_) {
            const uint64_t first = offset_of(part.first_block);
            const uint64_t last = offset_of(part.last_block);
            run_.messages.note(part.name,
                               "bytes " + std::to_string(first) + ":" + std::to_string(last));
            list.push_back({{"name", json_name(part.name)},
                            {"first", first},
                            {"last", last},
                            {"compressed_size", part.compressed_size}});
        }
        if (!run_.settings.json) return;
        print_json({{"command", "split"},
                    {"name", json_name(source_)},
                    {"original_size", info().original_size},
                    {"sealed", seals()},
                    {"pieces", std::move(list)}});
    }

    const session& run_;
    const path& source_;
    open_reader input_;
    std::vector<piece> pieces_;
    std::vector<uint32_t> sums_; // CRC-32 of each block
};

} // namespace

int run_split(const session& run)
{
    return for_each_operand(run, [&](const path& name) { return splitting(run, name).run(); });
}

} // namespace tool
