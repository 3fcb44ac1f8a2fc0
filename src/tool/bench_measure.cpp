// Each thread has a codec of its own and takes the next block until none is left.  Only the time
// spent in the codec counts: that of a repetition is the largest sum of any thread.  Copying a
// block into the codec's buffer, into which qrx would read the file, and comparing the result with
// the original are excluded.
#include "tool/bench_measure.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <system_error>
#include <thread>

namespace tool {
namespace {

/// Bytes at the start of a file that determine its type.
constexpr size_t sample_bytes = size_t{1} << 20;

using clock = std::chrono::steady_clock;

struct block {
    const char* source = nullptr;
    size_t length = 0;
    std::unique_ptr<char[]> payload; // with room for `length` + QRX_CODEC_SLACK bytes
    size_t payload_size = 0;
};

struct worker {
    codec_ptr codec;
    std::unique_ptr<char[]> decoded;
    double seconds = 0; // spent in the codec during this repetition
    qrx_status status = QRX_OK;
    bool has_difference = false;
};

qrx_status compress_block(worker& self, block& item)
{
    void* buffer = nullptr;
    const qrx_status lent = qrx_codec_buffer(self.codec.get(), item.length, &buffer);
    if (lent != QRX_OK) return lent;
    std::memcpy(buffer, item.source, item.length);
    const auto started = clock::now();
    const qrx_status status =
        qrx_codec_compress(self.codec.get(), buffer, item.length, item.payload.get(),
                           item.length + QRX_CODEC_SLACK, &item.payload_size);
    self.seconds += std::chrono::duration<double>(clock::now() - started).count();
    return status;
}

qrx_status decompress_block(worker& self, block& item)
{
    const auto started = clock::now();
    const qrx_status status = qrx_codec_decompress(
        self.codec.get(), item.payload.get(), item.payload_size, self.decoded.get(), item.length);
    self.seconds += std::chrono::duration<double>(clock::now() - started).count();
    if (status == QRX_OK && std::memcmp(self.decoded.get(), item.source, item.length) != 0)
        self.has_difference = true;
    return status;
}

using block_function = qrx_status (*)(worker& self, block& item);

class measurement {
  public:
    measurement(const bench_plan& plan, const bench_file& file, const qrx_params& params)
        : plan_(plan), workers_(plan.threads)
    {
        const size_t block_size = static_cast<size_t>(
            std::min(uint64_t{params.block_mib} << 20, uint64_t{file.content.size()}));
        for (size_t done = 0; done < file.content.size(); done += block_size)
            add_block(file.content.data() + done, std::min(block_size, file.content.size() - done));
        workers_.resize(std::min(workers_.size(), blocks_.size()));
        for (worker& each : workers_) {
            qrx_codec* made = nullptr;
            each.status = qrx_codec_new(&made, &params, nullptr);
            each.codec.reset(made);
            each.decoded.reset(new char[block_size]);
        }
    }

    /// Repeats `code` for all blocks; `seconds` receives the time of the fastest repetition.
    /// Returns the exit status.
    int repeat(block_function code, double& seconds, std::string& error)
    {
        double spent = 0;
        seconds = 0;
        do {
            run_all(code);
            double slowest = 0;
            for (const worker& each : workers_) {
                if (each.status != QRX_OK) return fail(each.status, error);
                if (each.has_difference) {
                    error = "internal error: a decompressed block differs from its original";
                    return exit_internal;
                }
                slowest = std::max(slowest, each.seconds);
            }
            seconds = spent == 0 ? slowest : std::min(seconds, slowest);
            spent += std::max(slowest, 1e-9);
        } while (spent < plan_.min_seconds);
        return exit_good;
    }

    uint64_t compressed_size() const
    {
        uint64_t size = file_header_bytes + seal_bytes;
        for (const block& each : blocks_) size += record_head_bytes + each.payload_size;
        return size;
    }

  private:
    void add_block(const char* source, size_t length)
    {
        block added;
        added.source = source;
        added.length = length;
        added.payload.reset(new char[length + QRX_CODEC_SLACK]);
        blocks_.push_back(std::move(added));
    }

    /// Failing to decode a block that was just encoded is a defect of the program, not damage.
    static int fail(qrx_status status, std::string& error)
    {
        const int known = exit_status_of(status);
        error = qrx_status_text(status);
        if (known == exit_failed) return known;
        error = "internal error: " + error;
        return exit_internal;
    }

    void run_all(block_function code)
    {
        next_ = 0;
        for (worker& each : workers_) each.seconds = 0;
        std::vector<std::thread> threads;
        threads.reserve(workers_.size());
        try {
            for (size_t index = 1; index < workers_.size(); ++index)
                threads.emplace_back([this, code, index] { run_one(code, workers_[index]); });
        } catch (const std::system_error&) {
            next_ = blocks_.size();
            workers_[0].status = QRX_NO_THREAD;
        }
        run_one(code, workers_[0]);
        for (std::thread& each : threads) each.join();
    }

    void run_one(block_function code, worker& self)
    {
        while (self.status == QRX_OK) {
            const size_t index = next_++;
            if (index >= blocks_.size()) return;
            self.status = code(self, blocks_[index]);
        }
    }

    const bench_plan& plan_;
    std::vector<worker> workers_;
    std::vector<block> blocks_;
    std::atomic<size_t> next_{0};
};

double mb_s(uint64_t bytes, double seconds)
{
    return static_cast<double>(bytes) / std::max(seconds, 1e-9) / 1e6;
}

} // namespace

double bench_result::ratio() const
{
    return static_cast<double>(compressed_size) / static_cast<double>(original_size);
}

double bench_result::compress_mb_s() const
{
    return mb_s(original_size, compress_seconds);
}

double bench_result::decompress_mb_s() const
{
    return mb_s(original_size, decompress_seconds);
}

bench_result sum_of(const std::vector<bench_result>& results)
{
    bench_result sum = results.front();
    for (size_t index = 1; index < results.size(); ++index) {
        const bench_result& added = results[index];
        sum.original_size += added.original_size;
        sum.compressed_size += added.compressed_size;
        sum.compress_seconds += added.compress_seconds;
        sum.decompress_seconds += added.decompress_seconds;
    }
    return sum;
}

qrx_params cell_params(int cell, const bench_plan& plan)
{
    qrx_params params{};
    params.struct_size = sizeof params;
    params.method = static_cast<uint32_t>(cell / 10);
    params.level = static_cast<uint32_t>(cell % 10);
    params.block_mib = plan.block_mib;
    qrx_params_settle(&params);
    return params;
}

uint64_t bench_memory(int cell, const bench_plan& plan, const std::vector<bench_file>& files)
{
    const qrx_params params = cell_params(cell, plan);
    const uint64_t block_size = uint64_t{params.block_mib} << 20;
    uint64_t held = 0;
    uint64_t largest = 0;
    for (const bench_file& file : files) {
        const uint64_t size = file.content.size();
        held += size;
        largest = std::max(largest, size + (size / block_size + 1) * QRX_CODEC_SLACK);
    }
    return held + largest + plan.threads * block_size + qrx_compress_memory(&params, plan.threads);
}

int measure_cell(int cell, const bench_plan& plan, const bench_file& file, bench_result& result,
                 std::string& error)
{
    qrx_params params = cell_params(cell, plan);
    result = {};
    result.cell = cell;
    result.block_mib = params.block_mib;
    result.original_size = file.content.size();
    result.compress_memory = qrx_compress_memory(&params, plan.threads);
    result.decompress_memory = qrx_decompress_memory(&params, plan.threads);
    const std::string name = is_stdio(file.name) ? "" : to_text(file.name.filename());
    qrx_params_for_type(&params, file.content.data(), std::min(file.content.size(), sample_bytes),
                        name.c_str());
    measurement measured(plan, file, params);
    int status = measured.repeat(compress_block, result.compress_seconds, error);
    if (status == exit_good)
        status = measured.repeat(decompress_block, result.decompress_seconds, error);
    result.compressed_size = measured.compressed_size();
    return status;
}

} // namespace tool
