// codec_bench - the codecs in memory, on one thread, next to a well-known peer
//
//     codec_bench [--benchmark_... options] FILE...
//
// For each file: every built level of every method encodes and decodes it as one block, and so does
// LZ4, all in buffers like those of the program, in large pages.  "ratio" is the size of the result
// over the size of the file.
#include "common/owned_array.h"
#include "common/platform.h"
#include "pipeline/codec_table.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <lz4.h>
#include <new>
#include <string>
#include <vector>

namespace quarnex {
namespace {

using bytes = owned_array<u8>;

/// A large buffer of zeros.
bytes make_buffer(usize size)
{
    bytes buffer = make_large_buffer(size);
    if (!buffer) throw std::bad_alloc();
    std::memset(buffer.get(), 0, size);
    return buffer;
}

struct sample {
    std::string name;
    bytes data; // with slack behind `size`
    usize size;
};

sample load(const std::string& path)
{
    const usize size = std::filesystem::file_size(path);
    sample file{std::filesystem::path(path).filename().string(), make_buffer(size + in_slack),
                size};
    std::ifstream stream(path, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream.read(reinterpret_cast<char*>(file.data.get()), static_cast<std::streamsize>(size));
    return file;
}

/// A job that encodes the sample into `out`, which has room for the slack of a payload too.
block_job encoding_job(const sample& file, u8 method, u8 level, bytes& out)
{
    out = make_buffer(file.size + std::max(out_slack, payload_slack));
    block_job job;
    job.parameters.method = method;
    job.parameters.level = level;
    apply_defaults(job.parameters, fit_to_cache(second_level_cache_kib()));
    job.in_buf = file.data.get();
    job.in_len = static_cast<u32>(file.size);
    job.out_buf = out.get();
    return job;
}

i32 run_codec(const codec_entry& codec, const block_job& job)
{
    void* const codec_state = codec.init(job);
    const i32 size = codec.run(job, codec_state);
    codec.release(job, codec_state);
    return size;
}

void check_restored(benchmark::State& state, const sample& file, const bytes& out)
{
    if (std::memcmp(out.get(), file.data.get(), file.size) != 0) state.SkipWithError("differs");
}

void report(benchmark::State& state, const sample& file, double coded_size)
{
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * static_cast<i64>(file.size));
    state.counters["ratio"] = coded_size / static_cast<double>(file.size);
}

void encode(benchmark::State& state, const sample& file, u8 method, u8 level)
{
    bytes out;
    const block_job job = encoding_job(file, method, level, out);
    i32 size = 0;
    for (auto _ : state) size = run_codec(*encoder_table[method], job);
    report(state, file, size);
}

void decode(benchmark::State& state, const sample& file, u8 method, u8 level)
{
    bytes payload;
    const block_job encoding = encoding_job(file, method, level, payload);
    const i32 size = run_codec(*encoder_table[method], encoding);
    if (size < 0) return state.SkipWithError("failed");
    if (static_cast<usize>(size) == file.size) return state.SkipWithError("stored");
    std::memset(payload.get() + size, 0, payload_slack);
    const bytes out = make_buffer(file.size + out_slack);
    block_job job;
    job.parameters = encoding.parameters;
    job.in_buf = payload.get();
    job.in_len = static_cast<u32>(size);
    job.out_buf = out.get();
    job.out_len = static_cast<u32>(file.size);
    for (auto _ : state) benchmark::DoNotOptimize(run_codec(*decoder_table[method], job));
    check_restored(state, file, out);
    report(state, file, size);
}

int lz4_encode_once(const sample& file, bytes& out, int room)
{
    return LZ4_compress_default(reinterpret_cast<const char*>(file.data.get()),
                                reinterpret_cast<char*>(out.get()), static_cast<int>(file.size),
                                room);
}

/// How much LZ4 may need for a sample.
int lz4_room(const sample& file)
{
    return LZ4_compressBound(static_cast<int>(file.size));
}

void lz4_encode(benchmark::State& state, const sample& file)
{
    const int room = lz4_room(file);
    bytes out = make_buffer(static_cast<usize>(room));
    int size = 0;
    for (auto _ : state) size = lz4_encode_once(file, out, room);
    report(state, file, size);
}

void lz4_decode(benchmark::State& state, const sample& file)
{
    const int room = lz4_room(file);
    bytes payload = make_buffer(static_cast<usize>(room));
    const int size = lz4_encode_once(file, payload, room);
    const bytes out = make_buffer(file.size);
    for (auto _ : state) {
        benchmark::DoNotOptimize(LZ4_decompress_safe(reinterpret_cast<const char*>(payload.get()),
                                                     reinterpret_cast<char*>(out.get()), size,
                                                     static_cast<int>(file.size)));
    }
    check_restored(state, file, out);
    report(state, file, size);
}

void register_sample(const sample& file)
{
    const std::string slash = "/" + file.name;
    const auto add = [&](const std::string& name, auto function, auto... arguments) {
        benchmark::RegisterBenchmark((name + slash).c_str(), [=, &file](benchmark::State& state) {
            function(state, file, arguments...);
        })->Unit(benchmark::kMillisecond);
    };
    add("encode/lz4", lz4_encode);
    add("decode/lz4", lz4_decode);
    for (u8 method = first_method; method <= last_method; ++method) {
        for (u8 level = 0; level <= last_level; ++level) {
            if (!has_encoder(method, level)) continue;
            const std::string cell = std::to_string(method) + std::to_string(level);
            add("encode/" + cell, encode, method, level);
            add("decode/" + cell, decode, method, level);
        }
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
    for (const auto& file : samples) quarnex::register_sample(file);
    benchmark::RunSpecifiedBenchmarks();
}
