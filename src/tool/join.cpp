// Joins pieces into one file.  Nothing is decoded unless the result is verified.
//
// The seal of the result is computed from those of the pieces.  The CRC-32 of A followed by B is
// shift(crc(A), size of B) ^ crc(B), and shift(c, n) is linear.  So the writer gets 0 as the CRC-32
// of each block of a piece but the last, and the piece's seal as that of the last one: for two
// blocks of sizes a and b, shift(shift(c, a) ^ 0, b) ^ seal = shift(c, a + b) ^ seal.
#include "tool/commands.h"
#include "tool/json.h"
#include "tool/piece_name.h"
#include "tool/process.h"
#include "tool/raw_output.h"
#include "tool/targets.h"

#include <algorithm>

namespace tool {
namespace {

struct piece {
    path name;
    piece_name parts; // of a name like NAME.03of12.qrx
    qrx_info info{};
    qrx_params params{};
    file_traits traits;
    uint64_t first_block = 0; // in the result
};

/// Describes the first difference in the parameters that a decoder needs; empty if there is none.
std::string difference(const qrx_params& first, const qrx_params& other)
{
    const auto compare = [](const char* what, uint32_t left, uint32_t right) {
        return left == right ? std::string()
                             : std::string(what) + " is " + std::to_string(right) + ", not " +
                                   std::to_string(left);
    };
    std::string text = compare("the method", first.method, other.method);
    if (text.empty()) text = compare("the level", first.level, other.level);
    if (text.empty()) text = compare("the block size in MiB", first.block_mib, other.block_mib);
    if (text.empty()) text = compare("the filter", first.filter, other.filter);
    if (text.empty() && first.method == 4)
        text = compare("the number of context bits", first.context_bits, other.context_bits);
    return text;
}

class joining {
  public:
    explicit joining(const session& run) : run_(run), target_(run.settings.output), output_(run) {}

    int run()
    {
        for (const path& name : run_.settings.names) {
            pieces_.emplace_back();
            pieces_.back().name = name;
            pieces_.back().parts = read_piece_name(name);
        }
        int status = sort();
        if (status == exit_good) status = look_at_all();
        if (status == exit_good) status = open_target();
        if (status == exit_good) status = write_all();
        if (status == exit_good && run_.settings.verifies) status = verify();
        run_.progress.end();
        if (status == exit_good) status = output_.finish(pieces_[0].traits, replaces_);
        if (status == exit_good) report();
        return status;
    }

  private:
    int fail(const path& name, const std::string& text, int status = exit_failed) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    /// Sorts pieces whose names have numbers, and checks that none is missing.
    int sort()
    {
        const auto has_parts = [](const piece& part) { return part.parts.number != 0; };
        if (!std::all_of(pieces_.begin(), pieces_.end(), has_parts)) return exit_good;
        const piece_name expected = pieces_[0].parts;
        for (const piece& part : pieces_)
            if (part.parts.stem != expected.stem || part.parts.count != expected.count)
                return fail(part.name,
                            "is a piece of another file than " + printable(pieces_[0].name));
        const auto is_before = [](const piece& left, const piece& right) {
            return left.parts.number < right.parts.number;
        };
        if (!std::is_sorted(pieces_.begin(), pieces_.end(), is_before))
            run_.messages.note(target_, "pieces sorted by number");
        std::stable_sort(pieces_.begin(), pieces_.end(), is_before);
        uint64_t number = 0;
        for (const piece& part : pieces_) {
            if (part.parts.number == number) return fail(part.name, "is given more than once");
            if (part.parts.number != ++number) return fail_missing(expected, number);
        }
        return number == expected.count ? exit_good : fail_missing(expected, number + 1);
    }

    int fail_missing(piece_name missing, uint64_t number) const
    {
        missing.number = number;
        return fail(name_of(missing), "is missing");
    }

    /// Reads headers, record heads and seals of all pieces, and checks that the pieces fit
    /// together.
    int look_at_all()
    {
        const piece* model = nullptr; // the first piece with blocks
        for (piece& part : pieces_) {
            const int status = look_at(part);
            if (status != exit_good) return status;
            if (part.info.original_size == 0) continue;
            if (model == nullptr) model = &part;
            const std::string text = difference(model->params, part.params);
            if (!text.empty())
                return fail(part.name, "doesn't belong to " + printable(model->name) + ": " + text);
            if (size_ % part.info.block_size != 0)
                return fail(part.name, "can't follow the pieces before it: their total size "
                                       "isn't a multiple of the block size");
            part.first_block = size_ / part.info.block_size;
            size_ += part.info.original_size;
            compressed_size_ += part.info.file_size;
            is_sealed_ = is_sealed_ && part.info.is_sealed != 0;
        }
        params_ = (model != nullptr ? *model : pieces_[0]).params;
        if (model == nullptr) is_sealed_ = pieces_[0].info.is_sealed != 0;
        const auto is_sealed = [](const piece& part) { return part.info.is_sealed != 0; };
        if (!is_sealed_ && std::any_of(pieces_.begin(), pieces_.end(), is_sealed))
            run_.messages.warn(target_, "not sealed, because not all pieces are");
        return exit_good;
    }

    int look_at(piece& part) const
    {
        if (is_stdio(part.name)) return fail("-", "pieces must be files");
        open_reader input;
        const int status = open_for_copy(run_, part.name, input);
        if (status != exit_good) return status;
        part.info = input.info;
        part.params = input.params;
        part.traits = input.input.file().traits();
        if (!part.traits.is_regular) return fail(part.name, "isn't a regular file");
        return exit_good;
    }

    int open_target()
    {
        if (is_stdio(target_)) {
            if (run_.settings.json || run_.settings.verifies)
                return fail("-", "--json and --verify need an output file");
            if (stdout_is_terminal() && !run_.settings.force)
                return fail("-", "compressed data isn't written to a terminal (-f forces it)");
            return output_.create(target_);
        }
        const file_traits* source = &pieces_[0].traits;
        file_traits existing;
        if (traits_of(target_, true, existing) == 0)
            for (const piece& part : pieces_)
                if (part.traits.is_same_file(existing)) source = &part.traits;
        if (!may_create(run_, target_, source, replaces_)) return exit_failed;
        return output_.create(target_);
    }

    int write_all()
    {
        run_.progress.start(target_, size_, compressed_size_);
        int status = output_.start(params_, size_, is_sealed_);
        for (const piece& part : pieces_)
            if (status == exit_good) status = copy(part);
        return status == exit_good ? output_.end() : status;
    }

    int copy(const piece& part)
    {
        open_reader input;
        int status = open_for_copy(run_, part.name, input);
        if (status != exit_good) return status;
        if (!input.input.file().traits().is_same_version(part.traits))
            return fail(part.name, "changed while qrx ran");
        const uint64_t count = part.info.block_count;
        for (uint64_t block = 0; status == exit_good && block < count; ++block) {
            const uint32_t sum = block + 1 == count ? part.info.seal : 0;
            status = output_.copy(part.name, input, block, is_sealed_ ? &sum : nullptr);
            run_.progress.advance((part.first_block + block) * part.info.block_size);
        }
        return status;
    }

    /// Decodes the output to check it.
    int verify()
    {
        run_.progress.start(target_, size_, output_.size());
        observer watcher;
        watcher.progress = &run_.progress;
        const qrx_source source = output_.content();
        const uint32_t threads = decompressing_threads(run_, target_, params_, size_, source.size);
        qrx_options library = library_options(watcher, threads, 0);
        library.memory_limit = run_.settings.memory_limit;
        qrx_reader* made = nullptr;
        qrx_status result = qrx_reader_open_source(&made, &source, &library);
        const reader_ptr reader(made);
        if (result == QRX_OK) result = qrx_reader_test(made);
        if (result == QRX_OK) return exit_good;
        const qrx_event* fault = watcher.events.empty() ? nullptr : &watcher.events.front();
        if (fault == nullptr || fault->block == QRX_NO_BLOCK)
            return fail(target_, "verification: " + failure_text(result, watcher),
                        exit_status_of(result));
        qrx_event within = *fault;
        const piece& part = piece_of(fault->block);
        within.block -= part.first_block;
        return fail(part.name, fault_text(within, part.info), exit_status_of(result));
    }

    const piece& piece_of(uint64_t block) const
    {
        const auto has_block = [&](const piece& part) {
            return block - part.first_block < part.info.block_count;
        };
        return *std::find_if(pieces_.begin(), pieces_.end(), has_block);
    }

    void report() const
    {
        run_.messages.note(target_, std::to_string(pieces_.size()) + " pieces, " +
                                        size_text(size_) + (is_sealed_ ? "" : ", not sealed"));
        if (!run_.settings.json) return;
        json names = json::array();
        for (const piece& part : pieces_) names.push_back(json_name(part.name));
        print_json({{"command", "join"},
                    {"output", json_name(target_)},
                    {"original_size", size_},
                    {"compressed_size", output_.size()},
                    {"sealed", is_sealed_},
                    {"verified", run_.settings.verifies},
                    {"pieces", std::move(names)}});
    }

    const session& run_;
    const path& target_;
    raw_output output_;
    bool replaces_ = false;
    std::vector<piece> pieces_;
    qrx_params params_{};
    uint64_t size_ = 0;            // of the original
    uint64_t compressed_size_ = 0; // of the pieces
    bool is_sealed_ = true;
};

} // namespace

int run_join(const session& run)
{
    return joining(run).run();
}

} // namespace tool
