// library_bench - measures what the C interface costs on top of the codecs
//
//     library_bench [--benchmark_... options] FILE...
//
// The files are concatenated, up to 16 MiB, as one block.  For each cell:
//
//     codec     the codec alone, from and to buffers with slack
//     buffers   qrx_compress() and qrx_decompress() without threads
//     sealed    the same with a seal
//     lent      qrx_codec_compress() from the codec's own buffer
//     read      qrx_reader_read() of 64 KiB at a time, blocks of 1 MiB, with 0 to 2 threads
//     random    qrx_reader_read() of 64 KiB at random offsets of that file; the time of one read
//     block     opening that file and reading its first block
//
// "min" is the fastest of the repetitions.
#include "common/owned_array.h"
#include "common/scratch.h"
#include "format/container.h"
#include "pipeline/codec_table.h"
#include "qrx.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace quarnex {
namespace {

using bytes = std::vector<u8>;

constexpr usize max_bytes = usize{16} << 20; // the largest block of levels 4 to 7
constexpr usize piece = usize{64} << 10;
constexpr usize slack = 8192; // for codecs

void check(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "library_bench: %s failed\n", what);
    std::exit(1);
}

struct cell {
    u8 method;
    u8 level;

    std::string name() const { return std::to_string(method) + std::to_string(level); }
    qrx_params params(u32 block_mib) const
    {
        qrx_params params{};
        params.struct_size = sizeof params;
        params.method = method;
        params.level = level;
        params.block_mib = block_mib;
        check(qrx_params_settle(&params) == QRX_OK, "qrx_params_settle()");
        return params;
    }
};

constexpr cell cells[] = {{1, 0}, {1, 2}, {1, 7}, {2, 0}, {2, 3}, {2, 7},
                          {3, 0}, {3, 3}, {4, 0}, {4, 3}, {5, 0}, {5, 3}};

qrx_options options_of(u32 threads, u32 flags)
{
    qrx_options options{};
    options.struct_size = sizeof options;
    options.threads = threads;
    options.flags = flags;
    return options;
}

bytes compress(const bytes& data, const qrx_params& params, u32 flags)
{
    const qrx_options options = options_of(2, flags);
    bytes image(qrx_compress_bound(&params, data.size()));
    usize size = 0;
    check(qrx_compress(&params, &options, data.data(), data.size(), image.data(), image.size(),
                       &size) == QRX_OK,
          "qrx_compress()");
    image.resize(size);
    return image;
}

usize run_codec(const codec_entry& codec, const cell& which, const bytes& in, usize in_len,
                bytes& out, usize out_len)
{
    static scratch memory(system_allocator);
    const qrx_params params = which.params(32);
    codec_job job;
    job.memory = &memory;
    job.parameters = {which.method, which.level, 0, static_cast<i32>(params.hash_bits),
                      static_cast<i32>(params.chain_bits)};
    job.in_buf = in.data();
    job.in_len = static_cast<u32>(in_len);
    job.out_buf = out.data();
    job.out_len = static_cast<u32>(out_len);
    void* const state = codec.init(job);
    const codec_result result = codec.run(job, state);
    codec.release(job, state);
    return result.length;
}

/// Registers a benchmark that runs `body` and counts `size` bytes each time.
void add(const std::string& name, usize size, std::function<void()> body)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [size, body = std::move(body)](benchmark::State& state) {
                                     for (auto unused : state) body();
                                     state.SetBytesProcessed(state.iterations() *
                                                             static_cast<i64>(size));
                                 })
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime()
        ->ComputeStatistics("min", [](const std::vector<double>& times) {
            return *std::min_element(times.begin(), times.end());
        });
}

void add_buffers(const std::string& name, const cell& which, const bytes& data, u32 flags)
{
    const qrx_params params = which.params(32);
    auto image = std::make_shared<bytes>(compress(data, params, flags));
    auto room = std::make_shared<bytes>(qrx_compress_bound(&params, data.size()));
    add(which.name() + "/compress/" + name, data.size(), [=, &data] {
        const qrx_options options = options_of(0, flags);
        usize size = 0;
        check(qrx_compress(&params, &options, data.data(), data.size(), room->data(), room->size(),
                           &size) == QRX_OK,
              "qrx_compress()");
    });
    add(which.name() + "/restore/" + name, data.size(), [=, &data] {
        const qrx_options options = options_of(0, 0);
        usize size = 0;
        check(qrx_decompress(&options, image->data(), image->size(), room->data(), data.size(),
                             &size) == QRX_OK,
              "qrx_decompress()");
    });
}

void add_codec(const cell& which, const bytes& data)
{
    auto in = std::make_shared<bytes>(data);
    auto out = std::make_shared<bytes>(data.size() + slack);
    auto payload = std::make_shared<bytes>(data.size() + slack);
    in->resize(data.size() + slack);
    const codec_entry& encoder = *encoder_table[which.method];
    const codec_entry& decoder = *decoder_table[which.method];
    const usize packed = run_codec(encoder, which, *in, data.size(), *payload, 0);
    std::fill(payload->begin() + static_cast<std::ptrdiff_t>(packed), payload->end(), u8{0});
    add(which.name() + "/compress/codec", data.size(),
        [=, &data] { run_codec(encoder, which, *in, data.size(), *out, 0); });
    add(which.name() + "/restore/codec", data.size(),
        [=, &data] { run_codec(decoder, which, *payload, packed, *out, data.size()); });
}

void add_lent(const cell& which, const bytes& data)
{
    const qrx_params params = which.params(32);
    qrx_codec* codec = nullptr;
    check(qrx_codec_new(&codec, &params, nullptr) == QRX_OK, "qrx_codec_new()");
    void* block = nullptr;
    check(qrx_codec_buffer(codec, data.size(), &block) == QRX_OK, "qrx_codec_buffer()");
    std::memcpy(block, data.data(), data.size());
    auto payload = std::make_shared<bytes>(data.size() + QRX_CODEC_SLACK);
    add(which.name() + "/compress/lent", data.size(), [=, &data] { // the codec lives to the end
        usize size = 0;
        check(qrx_codec_compress(codec, block, data.size(), payload->data(), payload->size(),
                                 &size) == QRX_OK,
              "qrx_codec_compress()");
    });
}

qrx_reader* open(const bytes& image, u32 threads)
{
    const qrx_options options = options_of(threads, 0);
    qrx_reader* reader = nullptr;
    check(qrx_reader_open_memory(&reader, image.data(), image.size(), &options) == QRX_OK,
          "qrx_reader_open_memory()");
    return reader;
}

void read(qrx_reader* reader, u64 offset, bytes& dest)
{
    usize got = 0;
    check(qrx_reader_read(reader, offset, dest.data(), dest.size(), &got) == QRX_OK,
          "qrx_reader_read()");
}

void add_reader(const cell& which, const bytes& data)
{
    const qrx_params params = which.params(1);
    const std::string name = which.name() + "/read/";
    for (const u32 flags : {0U, QRX_SEAL}) {
        auto image = std::make_shared<bytes>(compress(data, params, flags));
        for (const u32 threads : {0U, 1U, 2U}) {
            add(name + (flags != 0 ? "sealed" : "plain") + std::to_string(threads), data.size(),
                [=, &data] {
                    qrx_reader* const reader = open(*image, threads);
                    bytes dest(piece);
                    for (usize at = 0; at < data.size(); at += piece) read(reader, at, dest);
                    qrx_reader_close(reader);
                });
        }
    }
    auto image = std::make_shared<bytes>(compress(data, params, 0));
    add(name + "block", usize{1} << 20, [image] {
        bytes dest(usize{1} << 20);
        qrx_reader* const reader = open(*image, 0);
        read(reader, 0, dest);
        qrx_reader_close(reader);
    });
    qrx_reader* const reader = open(*image, 2);
    auto places = std::make_shared<std::mt19937>(1);
    add(name + "random", piece, [=, &data] { // the reader lives to the end
        bytes dest(piece);
        read(reader, (*places)() % (data.size() - piece), dest);
    });
}

bytes load(int count, char** names)
{
    bytes data;
    for (int i = 0; i < count && data.size() < max_bytes; ++i) {
        std::ifstream stream(names[i], std::ios::binary);
        check(stream.good(), names[i]);
        data.insert(data.end(), std::istreambuf_iterator<char>(stream), {});
    }
    data.resize(std::min(data.size(), max_bytes));
    check(data.size() > piece, "finding enough data");
    return data;
}

} // namespace
} // namespace quarnex

int main(int argc, char** argv)
{
    using namespace quarnex;
    benchmark::Initialize(&argc, argv);
    const bytes data = load(argc - 1, argv + 1);
    for (const cell& each : cells) {
        add_codec(each, data);
        add_buffers("buffers", each, data, 0);
        add_buffers("sealed", each, data, QRX_SEAL);
        add_lent(each, data);
        add_reader(each, data);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
