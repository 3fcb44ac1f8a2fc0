// codec_bench - measures the codecs in memory on one thread, next to well-known compressors
//
//     codec_bench [--benchmark_... options] FILE...
//
// Every level of every method, LZ4, zlib, zstd and xz encode and decode the first 16 MiB of each
// file, a block size that all levels support.  Buffers are in large pages, as in the program.  The
// codecs are given the file's literal context bits, but no pre-filter is applied.  "ratio" is
// encoded size / block size.
#include "common/owned_array.h"
#include "common/platform/cpu.h"
#include "common/scratch.h"
#include "format/file_type.h"
#include "pipeline/codec_table.h"
#include "pipeline/parameters.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <lz4.h>
#include <lz4hc.h>
#include <lzma.h>
#include <new>
#include <span>
#include <string>
#include <vector>
#include <zlib.h>
#include <zstd.h>

namespace quarnex {
namespace {

using bytes = owned_array<u8>;
using input = std::span<const u8>;
using output = std::span<u8>;

/// Returns a zeroed buffer of `size` bytes plus the slack of encoders, in large pages.
bytes make_buffer(usize size)
{
    size += std::max(in_slack, out_slack);
    bytes buffer = make_array<u8>(system_allocator, size, memory_kind::large_pages);
    if (!buffer) throw std::bad_alloc();
    std::memset(buffer.get(), 0, size);
    return buffer;
}

struct sample {
    std::string name;
    bytes data;
    usize size;

    input text() const { return {data.get(), size}; }
};

/// Maximum block size of levels 4 to 7, in bytes.
constexpr usize max_bytes = usize{16} << 20;

sample load(const std::string& path)
{
    const usize size = std::min<usize>(std::filesystem::file_size(path), max_bytes);
    sample file{std::filesystem::path(path).filename().string(), make_buffer(size), size};
    std::ifstream stream(path, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream.read(reinterpret_cast<char*>(file.data.get()), static_cast<std::streamsize>(size));
    return file;
}

/// A compressor to be measured.  encode() and decode() return the number of bytes written, or 0 on
/// failure.
struct contender {
    std::string name;
    std::function<usize(usize size)> bound; // maximum encoded size of `size` bytes
    std::function<usize(input, output)> encode;
    std::function<usize(input, output)> decode;
};

usize run_codec(const codec_entry& codec, const codec_parameters& parameters, input in, output out)
{
    static scratch memory(system_allocator);
    codec_job job;
    job.memory = &memory;
    job.parameters = parameters;
    job.in_buf = in.data();
    job.in_len = static_cast<u32>(in.size());
    job.out_buf = out.data();
    job.out_len = static_cast<u32>(out.size());
    void* const codec_state = codec.init(job);
    if (codec_state == nullptr) return 0;
    const codec_result result = codec.run(job, codec_state);
    codec.release(job, codec_state);
    return result.length;
}

contender codec(const sample& file, u8 method, u8 level)
{
    file_parameters parameters;
    classify_file(file.text().first(std::min(file.size, usize{1} << 20)), file.name, parameters);
    parameters.codec.method = method;
    parameters.codec.level = level;
    settle_parameters(parameters, fit_to_cache(second_level_cache_kib()));
    const auto run = [parameters = parameters.codec](const codec_entry& entry) {
        return [&entry, parameters](input in, output out) {
            return run_codec(entry, parameters, in, out);
        };
    };
    return {std::to_string(method) + std::to_string(level), std::identity(),
            run(*encoder_table[method]), run(*decoder_table[method])};
}

/// Calls a function of LZ4.
usize run_lz4(auto function, input in, output out, auto... level)
{
    const int size =
        function(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(out.data()),
                 static_cast<int>(in.size()), static_cast<int>(out.size()), level...);
    return static_cast<usize>(std::max(size, 0));
}

/// LZ4 with its fast compressor, or with LZ4 HC at a level.
contender lz4(const std::string& name, auto function, auto... level)
{
    const auto bound = [](usize size) {
        return static_cast<usize>(LZ4_compressBound(static_cast<int>(size)));
    };
    const auto encode = [=](input in, output out) { return run_lz4(function, in, out, level...); };
    const auto decode = [](input in, output out) { return run_lz4(LZ4_decompress_safe, in, out); };
    return {name, bound, encode, decode};
}

/// Raw deflate at a level of zlib, as gzip uses it, without a checksum.
contender gzip(int level)
{
    constexpr int window_bits = -15; // negative: no header and no checksum
    const auto run = [](z_stream& stream, input in, output out, auto code, auto end) -> usize {
        stream.next_in = const_cast<u8*>(in.data());
        stream.avail_in = static_cast<uInt>(in.size());
        stream.next_out = out.data();
        stream.avail_out = static_cast<uInt>(out.size());
        const int result = code(&stream, Z_FINISH);
        end(&stream);
        return result == Z_STREAM_END ? stream.total_out : 0;
    };
    const auto encode = [=](input in, output out) {
        z_stream stream{};
        const int result = deflateInit2(&stream, level, Z_DEFLATED, window_bits, MAX_MEM_LEVEL - 1,
                                        Z_DEFAULT_STRATEGY);
        return result == Z_OK ? run(stream, in, out, deflate, deflateEnd) : 0;
    };
    const auto decode = [=](input in, output out) {
        z_stream stream{};
        const int result = inflateInit2(&stream, window_bits);
        return result == Z_OK ? run(stream, in, out, inflate, inflateEnd) : 0;
    };
    return {"gzip-" + std::to_string(level), compressBound, encode, decode};
}

contender zstd(const std::string& name, int level)
{
    const auto checked = [](usize size) { return ZSTD_isError(size) != 0 ? 0 : size; };
    const auto encode = [=](input in, output out) {
        return checked(ZSTD_compress(out.data(), out.size(), in.data(), in.size(), level));
    };
    const auto decode = [=](input in, output out) {
        return checked(ZSTD_decompress(out.data(), out.size(), in.data(), in.size()));
    };
    return {name, ZSTD_compressBound, encode, decode};
}

contender xz(u32 preset)
{
    const auto encode = [preset](input in, output out) {
        usize size = 0;
        const lzma_ret result = lzma_easy_buffer_encode(preset, LZMA_CHECK_NONE, nullptr, in.data(),
                                                        in.size(), out.data(), &size, out.size());
        return result == LZMA_OK ? size : 0;
    };
    const auto decode = [](input in, output out) {
        u64 memory_limit = UINT64_MAX;
        usize taken = 0;
        usize size = 0;
        const lzma_ret result = lzma_stream_buffer_decode(
            &memory_limit, 0, nullptr, in.data(), &taken, in.size(), out.data(), &size, out.size());
        return result == LZMA_OK ? size : 0;
    };
    return {"xz-" + std::to_string(preset), lzma_stream_buffer_bound, encode, decode};
}

std::vector<contender> all_racers(const sample& file)
{
    std::vector<contender> racers{
        lz4("lz4", LZ4_compress_default),
        lz4("lz4-3", LZ4_compress_HC, 3),
        lz4("lz4-9", LZ4_compress_HC, 9),
        gzip(1),
        gzip(6),
        gzip(9),
        zstd("zstd-fast1", -1),
        zstd("zstd-1", 1),
        zstd("zstd-3", 3),
        xz(0),
        xz(1),
        xz(6),
    };
    for (u8 method = first_method; method <= last_method; ++method) {
        for (u8 level = 0; level <= last_level; ++level) {
            racers.push_back(codec(file, method, level));
        }
    }
    return racers;
}

void report(benchmark::State& state, const sample& file, usize coded_size)
{
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * static_cast<i64>(file.size));
    state.counters["ratio"] = static_cast<double>(coded_size) / static_cast<double>(file.size);
}

void encode(benchmark::State& state, const sample& file, const contender& racer)
{
    const usize room = racer.bound(file.size);
    const bytes out = make_buffer(room);
    usize size = 0;
    for (auto _ : state) size = racer.encode(file.text(), {out.get(), room});
    if (size == 0) state.SkipWithError("failed");
    report(state, file, size);
}

struct payload {
    const sample* file = nullptr;
    const contender* racer = nullptr;
    bytes data;
    usize size = 0;
};

/// Returns the sample encoded by the racer; encodes it only once.  The framework calls a benchmark
/// repeatedly to find the number of iterations, and slow encoders must not run each time.
const payload& payload_of(const sample& file, const contender& racer)
{
    static payload latest;
    if (latest.file == &file && latest.racer == &racer) return latest;
    const usize room = racer.bound(file.size);
    latest = {&file, &racer, make_buffer(room), 0};
    latest.size = racer.encode(file.text(), {latest.data.get(), room});
    return latest;
}

void decode(benchmark::State& state, const sample& file, const contender& racer)
{
    const payload& coded = payload_of(file, racer);
    if (coded.size == 0) return state.SkipWithError("failed");
    if (coded.size == file.size) return state.SkipWithError("stored");
    const bytes out = make_buffer(file.size);
    usize size = 0;
    for (auto _ : state) {
        size = racer.decode({coded.data.get(), coded.size}, {out.get(), file.size});
    }
    if (size != file.size || std::memcmp(out.get(), file.data.get(), size) != 0) {
        state.SkipWithError("differs");
    }
    report(state, file, coded.size);
}

void register_races(const sample& file, const std::vector<contender>& racers)
{
    for (const contender& racer : racers) {
        const auto add = [&](const std::string& what, auto function) {
            const std::string name = what + "/" + racer.name + "/" + file.name;
            benchmark::RegisterBenchmark(name.c_str(), function, std::cref(file), std::cref(racer))
                ->Unit(benchmark::kMillisecond);
        };
        add("encode", encode);
        add("decode", decode);
    }
}

} // namespace
} // namespace quarnex

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: codec_bench [--benchmark_... options] FILE...\n");
        return 1;
    }
    std::vector<quarnex::sample> samples;
    for (int i = 1; i < argc; ++i) samples.push_back(quarnex::load(argv[i]));
    std::erase_if(samples, [](const auto& file) { return file.size == 0; });
    std::vector<std::vector<quarnex::contender>> racers; // by sample
    std::transform(samples.begin(), samples.end(), std::back_inserter(racers), quarnex::all_racers);
    for (quarnex::usize i = 0; i < samples.size(); ++i) {
        quarnex::register_races(samples[i], racers[i]);
    }
    benchmark::RunSpecifiedBenchmarks();
}
