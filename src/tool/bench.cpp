// Measures cells with files in memory.
//
// All files are measured with one cell before the next, so each row of the table can be printed at
// once: a run over all cells takes minutes, and an interrupted one leaves its results so far.  The
// front is known only at the end, so it follows as a list, fastest cell first.
#include "tool/bench_front.h"
#include "tool/bench_json.h"
#include "tool/bench_plot.h"
#include "tool/bench_table.h"
#include "tool/commands.h"
#include "tool/targets.h"

#include <algorithm>
#include <thread>

namespace tool {
namespace {

constexpr size_t read_bytes = size_t{16} << 20;

class benchmark {
  public:
    explicit benchmark(const session& run) : run_(run) {}

    int run()
    {
        make_plan();
        int status = read_files();
        if (status == exit_good) status = check_memory();
        if (status == exit_good) status = create_plot();
        if (status != exit_good) return status;
        if (!run_.settings.json) print_now(table_head(plan_, files_));
        for (size_t index = 0; index < cells_.size(); ++index)
            status = std::max(status, measure(index));
        run_.progress.end();
        if (totals_.empty()) return status;
        report();
        return std::max(status, write_plot());
    }

  private:
    int fail(const path& name, const std::string& text, int status = exit_failed) const
    {
        run_.progress.end();
        run_.messages.error(name, text);
        return status;
    }

    void make_plan()
    {
        plan_.block_mib = run_.settings.params.block_mib;
        plan_.min_seconds = run_.settings.min_seconds;
        plan_.threads = run_.settings.threads != 0
                            ? run_.settings.threads
                            : std::clamp(std::thread::hardware_concurrency(), 1U, QRX_MAX_THREADS);
        cells_ = run_.settings.cells;
        if (cells_.empty())
            for (int cell = 10; cell <= 59; ++cell) cells_.push_back(cell);
        std::sort(cells_.begin(), cells_.end());
        cells_.erase(std::unique(cells_.begin(), cells_.end()), cells_.end());
    }

    /// Reads all files.  One that can't be read ends the run, rather than minutes of measuring
    /// without it.
    int read_files()
    {
        for (const path& name : run_.settings.names) {
            bench_file file;
            file.name = name;
            const int status = read_file(file);
            if (status != exit_good) return status;
            if (file.content.empty())
                run_.messages.warn(name, "is empty, skipped");
            else
                files_.push_back(std::move(file));
        }
        if (!files_.empty()) return exit_good;
        run_.messages.error("all files are empty: nothing to measure");
        return exit_failed;
    }

    int read_file(bench_file& file)
    {
        input_file input;
        const int opened = is_stdio(file.name) ? input.open_stdin() : input.open(file.name);
        if (opened != 0) return fail(file.name, system_error_text(opened));
        traits_.push_back(input.traits());
        if (is_over_limit(input.size())) return fail_limit(file.name, input.size());
        // A file is read in one call, a pipe piece by piece.
        const uint64_t wanted = input.is_seekable() ? input.size() : uint64_t{read_bytes};
        if (wanted > file.content.max_size()) return fail(file.name, "is too large for memory");
        const auto piece = static_cast<size_t>(wanted);
        for (size_t got = piece; got != 0 && got == piece;) {
            const size_t done = file.content.size();
            file.content.resize(done + piece);
            const int error = input.read(file.content.data() + done, piece, got);
            if (error != 0) return fail(file.name, system_error_text(error));
            file.content.resize(done + got);
            if (is_over_limit(done + got)) return fail_limit(file.name, done + got);
            if (input.is_seekable()) break;
        }
        held_ += file.content.size();
        return exit_good;
    }

    bool is_over_limit(uint64_t added) const
    {
        const uint64_t limit = run_.settings.memory_limit;
        return limit != 0 && (held_ > limit || added > limit - held_);
    }

    int fail_limit(const path& name, uint64_t added) const
    {
        return fail(name, "the files need at least " + size_text(held_ + added) +
                              ", and the memory limit is " + size_text(run_.settings.memory_limit));
    }

    /// Refuses cells for which the memory limit is too low, before anything is measured.
    int check_memory() const
    {
        const uint64_t limit = run_.settings.memory_limit;
        if (limit == 0) return exit_good;
        for (const int cell : cells_) {
            const uint64_t needed = bench_memory(cell, plan_, files_);
            if (needed <= limit) continue;
            run_.messages.error("cell " + std::to_string(cell) + " needs " + size_text(needed) +
                                " with the files, and the memory limit is " + size_text(limit) +
                                " (--cells chooses others, -b smaller blocks)");
            return exit_failed;
        }
        return exit_good;
    }

    /// Creates the file of the plot, so that an unusable name is noticed before minutes of
    /// measuring.  The file gets its name at the end.
    int create_plot()
    {
        const path& name = run_.settings.plot;
        if (name.empty()) return exit_good;
        if (is_stdio(name)) {
            run_.messages.error("--plot needs the name of a file");
            return exit_failed;
        }
        file_traits existing;
        if (traits_of(name, true, existing) == 0)
            for (const file_traits& input : traits_)
                if (existing.is_same_file(input)) return fail(name, "is the input file");
        if (!may_create(run_, name, nullptr, replaces_)) return exit_failed;
        const int error = plot_.create(name);
        return error == 0 ? exit_good : fail(name, system_error_text(error));
    }

    /// Measures a cell with all files.  A cell that fails is left out.
    int measure(size_t index)
    {
        std::vector<bench_result> results;
        for (const bench_file& file : files_) {
            run_.progress.status("cell " + std::to_string(cells_[index]) + " (" +
                                 std::to_string(index + 1) + " of " +
                                 std::to_string(cells_.size()) + "): " + printable(file.name));
            bench_result result;
            std::string error;
            const int status = measure_cell(cells_[index], plan_, file, result, error);
            if (status != exit_good)
                return fail(file.name, "cell " + std::to_string(cells_[index]) + ": " + error,
                            status);
            run_.progress.end();
            run_.messages.note(file.name, table_row(result, false));
            results.push_back(result);
        }
        totals_.push_back(sum_of(results));
        results_.push_back(std::move(results));
        run_.progress.end();
        if (!run_.settings.json) print_now(table_row(totals_.back(), false));
        return exit_good;
    }

    /// A write error is reported at the end of the program.
    static void print_now(const std::string& line)
    {
        print_line(line);
        flush_output();
    }

    void report() const
    {
        if (run_.settings.json)
            print_objects();
        else if (totals_.size() > 1)
            print_front();
    }

    void print_objects() const
    {
        for (size_t file = 0; file < files_.size(); ++file) {
            std::vector<bench_result> results;
            for (const auto& of_cell : results_) results.push_back(of_cell[file]);
            print_json(bench_object(plan_, files_[file], results));
        }
    }

    void print_front() const
    {
        print_line("\nThe front: no other cell compresses both faster and smaller.\n");
        for (const size_t index : front_order(totals_, &bench_result::compress_mb_s))
            print_line(table_row(totals_[index], true));
    }

    int write_plot()
    {
        const path& name = run_.settings.plot;
        if (name.empty()) return exit_good;
        const std::string text = bench_svg(files_text(files_), totals_);
        int error = plot_.write_at(0, text.data(), text.size());
        if (error == 0) error = plot_.finish(replaces_, run_.settings.syncs);
        return error == 0 ? exit_good : fail(name, system_error_text(error));
    }

    const session& run_;
    bench_plan plan_;
    std::vector<int> cells_;
    std::vector<bench_file> files_;
    std::vector<file_traits> traits_;                // of the files
    uint64_t held_ = 0;                              // bytes of the files
    std::vector<bench_result> totals_;               // by cell
    std::vector<std::vector<bench_result>> results_; // by cell and file
    output_file plot_;
    bool replaces_ = false;
};

} // namespace

int run_bench(const session& run)
{
    return benchmark(run).run();
}

} // namespace tool
