// codec_bench - measures qrx and well-known compressors in memory on one thread
//
//     codec_bench [--benchmark_... options] FILE...
//
// Every cell of qrx, LZ4, zlib, zstd, brotli, bzip2 and xz compress and decompress each file as a
// whole, from buffer to buffer.  The time includes the library's own allocations but, where the
// library can omit it, no checksum.  "ratio" is compressed / original size.
#include "common/owned_array.h"
#include "qrx.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <brotli/decode.h>
#include <brotli/encode.h>
#include <bzlib.h>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <lz4.h>
#include <lz4hc.h>
#include <lzma.h>
#include <memory>
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

/// Returns a zeroed buffer in large pages, so that no page faults in it are measured.
bytes make_buffer(usize size)
{
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

sample load(const std::string& path)
{
    const usize size = std::filesystem::file_size(path);
    sample file{std::filesystem::path(path).filename().string(), make_buffer(size), size};
    std::ifstream stream(path, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream.read(reinterpret_cast<char*>(file.data.get()), static_cast<std::streamsize>(size));
    return file;
}

/// A compressor to be measured.  encode() and decode() return the number of bytes written, or 0 on
/// failure.  `state` is null where the time isn't measured.
struct contender {
    std::string name;                       // the tool and its setting, as in "zstd-3"
    std::function<usize(usize size)> bound; // maximum encoded size of `size` bytes
    std::function<usize(input, output, benchmark::State* state)> encode;
    std::function<usize(input, output)> decode;
};

/// Codes a block, so that the first page faults in the codec's memory are not measured.
void warm_up(qrx_codec* codec, input block)
{
    const usize room = block.size() + QRX_CODEC_SLACK;
    const bytes payload = make_buffer(room);
    usize size = 0;
    qrx_codec_compress(codec, block.data(), block.size(), payload.get(), room, &size);
}

/// Returns a codec for the parameters, which stays valid until the next call; null on failure.
qrx_codec* codec_for(const qrx_params& params, input block)
{
    constexpr u32 slow_level = 8; // takes much longer than its page faults
    static std::unique_ptr<qrx_codec, decltype(&qrx_codec_free)> codec(nullptr, qrx_codec_free);
    static qrx_params last{};
    if (codec != nullptr && std::memcmp(&params, &last, sizeof params) == 0) return codec.get();
    codec.reset();
    qrx_codec* made = nullptr;
    if (qrx_codec_new(&made, &params, nullptr) != QRX_OK) return nullptr;
    codec.reset(made);
    last = params;
    if (params.level < slow_level && !block.empty()) warm_up(made, block);
    return made;
}

/// Pauses the timer during its lifetime.  `state` may be null.
class pause {
  public:
    explicit pause(benchmark::State* state) : state_(state)
    {
        if (state_ != nullptr) state_->PauseTiming();
    }
    pause(const pause&) = delete;
    pause& operator=(const pause&) = delete;
    ~pause()
    {
        if (state_ != nullptr) state_->ResumeTiming();
    }

  private:
    benchmark::State* state_;
};

/// Copies a block into the codec's own buffer, into which the programs read files; null on failure.
void* lend_block(qrx_codec* codec, input block, benchmark::State* state)
{
    const pause copying(state);
    void* lent = nullptr;
    if (qrx_codec_buffer(codec, block.size(), &lent) != QRX_OK) return nullptr;
    return std::memcpy(lent, block.data(), block.size());
}

qrx_codec* codec_for(const qrx_params& params, input block, benchmark::State* state)
{
    const pause creating(state);
    return codec_for(params, block);
}

/// Codes the blocks of a file.  Each payload follows its size, a u32.
usize encode_blocks(const qrx_params& params, input in, output out, benchmark::State* state)
{
    const usize block_size = usize{params.block_mib} << 20;
    qrx_codec* const codec = codec_for(params, in.first(std::min(block_size, in.size())), state);
    if (codec == nullptr) return 0;
    usize done = 0;
    for (; !in.empty(); in = in.subspan(std::min(block_size, in.size()))) {
        const input block = in.first(std::min(block_size, in.size()));
        void* const lent = lend_block(codec, block, state);
        if (lent == nullptr) return 0;
        usize size = 0;
        const output room = out.subspan(done + sizeof(u32));
        if (qrx_codec_compress(codec, lent, block.size(), room.data(),
                               std::min(room.size(), block.size() + QRX_CODEC_SLACK),
                               &size) != QRX_OK) {
            return 0;
        }
        const u32 stored_size = static_cast<u32>(size);
        std::memcpy(out.data() + done, &stored_size, sizeof stored_size);
        done += sizeof stored_size + size;
    }
    return done;
}

usize decode_blocks(const qrx_params& params, input in, output out)
{
    qrx_codec* const codec = codec_for(params, {});
    if (codec == nullptr) return 0;
    const usize block_size = usize{params.block_mib} << 20;
    usize done = 0;
    while (!in.empty()) {
        u32 size = 0;
        std::memcpy(&size, in.data(), sizeof size);
        const output block = out.subspan(done, std::min(block_size, out.size() - done));
        if (qrx_codec_decompress(codec, in.data() + sizeof size, size, block.data(),
                                 block.size()) != QRX_OK) {
            return 0;
        }
        in = in.subspan(sizeof size + size);
        done += block.size();
    }
    return done;
}

contender cell(const sample& file, u32 method, u32 level)
{
    qrx_params params{};
    params.struct_size = sizeof params;
    params.method = method;
    params.level = level;
    qrx_params_settle(&params);
    qrx_params_for_type(&params, file.data.get(), std::min(file.size, usize{1} << 20),
                        file.name.c_str());
    const auto bound = [=](usize size) {
        const usize blocks = size / (usize{params.block_mib} << 20) + 1;
        return size + blocks * (sizeof(u32) + QRX_CODEC_SLACK);
    };
    const auto encode = [=](input in, output out, benchmark::State* state) {
        return encode_blocks(params, in, out, state);
    };
    const auto decode = [=](input in, output out) { return decode_blocks(params, in, out); };
    return {"qrx-" + std::to_string(method) + std::to_string(level), bound, encode, decode};
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
    const auto encode = [=](input in, output out, auto) {
        return run_lz4(function, in, out, level...);
    };
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
    const auto encode = [=](input in, output out, auto) {
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

contender zstd(int level)
{
    const auto checked = [](usize size) { return ZSTD_isError(size) != 0 ? 0 : size; };
    const auto encode = [=](input in, output out, auto) {
        static ZSTD_CCtx* const context = ZSTD_createCCtx();
        return checked(
            ZSTD_compressCCtx(context, out.data(), out.size(), in.data(), in.size(), level));
    };
    const auto decode = [=](input in, output out) {
        static ZSTD_DCtx* const context = ZSTD_createDCtx();
        return checked(ZSTD_decompressDCtx(context, out.data(), out.size(), in.data(), in.size()));
    };
    const std::string setting =
        level < 0 ? "-fast" + std::to_string(-level) : std::to_string(level);
    return {"zstd-" + setting, ZSTD_compressBound, encode, decode};
}

/// brotli with a window of 16 MiB.
contender brotli(int quality)
{
    const auto encode = [=](input in, output out, auto) {
        usize size = out.size();
        const bool ok =
            BrotliEncoderCompress(quality, BROTLI_MAX_WINDOW_BITS, BROTLI_MODE_GENERIC, in.size(),
                                  in.data(), &size, out.data()) == BROTLI_TRUE;
        return ok ? size : 0;
    };
    const auto decode = [](input in, output out) {
        usize size = out.size();
        const auto result = BrotliDecoderDecompress(in.size(), in.data(), &size, out.data());
        return result == BROTLI_DECODER_RESULT_SUCCESS ? size : 0;
    };
    return {"brotli-" + std::to_string(quality), BrotliEncoderMaxCompressedSize, encode, decode};
}

/// bzip2 with a block size of `level` * 100 kB.  It always computes checksums.
contender bzip2(int level)
{
    const auto bound = [](usize size) { return size + size / 100 + 600; };
    const auto chars = [](auto* data) { return reinterpret_cast<char*>(const_cast<u8*>(data)); };
    const auto encode = [=](input in, output out, auto) -> usize {
        auto size = static_cast<unsigned>(out.size());
        const int result = BZ2_bzBuffToBuffCompress(chars(out.data()), &size, chars(in.data()),
                                                    static_cast<unsigned>(in.size()), level, 0, 0);
        return result == BZ_OK ? size : 0;
    };
    const auto decode = [=](input in, output out) -> usize {
        auto size = static_cast<unsigned>(out.size());
        const int result = BZ2_bzBuffToBuffDecompress(chars(out.data()), &size, chars(in.data()),
                                                      static_cast<unsigned>(in.size()), 0, 0);
        return result == BZ_OK ? size : 0;
    };
    return {"bzip2-" + std::to_string(level), bound, encode, decode};
}

contender xz(u32 level, bool extreme = false)
{
    const u32 preset = level | (extreme ? LZMA_PRESET_EXTREME : 0);
    const auto encode = [preset](input in, output out, auto) {
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
    return {"xz-" + std::to_string(level) + (extreme ? "e" : ""), lzma_stream_buffer_bound, encode,
            decode};
}

std::vector<contender> all_contenders(const sample& file)
{
    std::vector<contender> contenders{
        lz4("lz4-1", LZ4_compress_default),
        lz4("lz4-3", LZ4_compress_HC, 3),
        lz4("lz4-9", LZ4_compress_HC, 9),
        lz4("lz4-12", LZ4_compress_HC, 12),
        gzip(1),
        gzip(6),
        gzip(9),
        zstd(-1),
        zstd(1),
        zstd(3),
        zstd(6),
        zstd(9),
        zstd(12),
        zstd(15),
        zstd(19),
        brotli(1),
        brotli(5),
        brotli(9),
        brotli(11),
        bzip2(9),
        xz(0),
        xz(3),
        xz(6),
        xz(9, true),
    };
    for (u32 method = 1; method <= 5; ++method) {
        for (u32 level = 0; level <= 9; ++level) contenders.push_back(cell(file, method, level));
    }
    return contenders;
}

void report(benchmark::State& state, const sample& file, usize coded_size)
{
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * static_cast<i64>(file.size));
    state.counters["ratio"] = static_cast<double>(coded_size) / static_cast<double>(file.size);
}

/// A sample as one contender encoded it.
struct payload {
    const sample* file = nullptr;
    const contender* by = nullptr;
    bytes data;
    usize room = 0;
    usize size = 0;
};

/// Returns the latest payload, emptied first if it is another one.  Decoding usually follows
/// encoding of the same payload; slow encoders need not run again.
payload& payload_of(const sample& file, const contender& by)
{
    static payload latest;
    if (latest.file != &file || latest.by != &by) {
        const usize room = by.bound(file.size);
        latest = {&file, &by, make_buffer(room), room, 0};
    }
    return latest;
}

void encode_once(payload& coded, benchmark::State* state)
{
    coded.size = coded.by->encode(coded.file->text(), {coded.data.get(), coded.room}, state);
}

void encode(benchmark::State& state, const sample& file, const contender& by)
{
    payload& coded = payload_of(file, by);
    for (auto _ : state) encode_once(coded, &state);
    if (coded.size == 0) return state.SkipWithError("failed");
    report(state, file, coded.size);
}

void decode(benchmark::State& state, const sample& file, const contender& by)
{
    payload& coded = payload_of(file, by);
    if (coded.size == 0) encode_once(coded, nullptr);
    if (coded.size == 0) return state.SkipWithError("failed");
    const bytes out = make_buffer(file.size);
    usize size = 0;
    for (auto _ : state) {
        size = by.decode({coded.data.get(), coded.size}, {out.get(), file.size});
    }
    if (size != file.size || std::memcmp(out.get(), file.data.get(), size) != 0) {
        state.SkipWithError("differs");
    }
    report(state, file, coded.size);
}

void add_benchmarks(const sample& file, const contender& each)
{
    const auto add = [&](const std::string& what, auto function) {
        const std::string name = what + "/" + each.name + "/" + file.name;
        benchmark::RegisterBenchmark(name.c_str(), function, std::cref(file), std::cref(each))
            ->Unit(benchmark::kMillisecond);
    };
    add("encode", encode);
    add("decode", decode);
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
    std::vector<std::vector<quarnex::contender>> contenders; // by sample
    std::transform(samples.begin(), samples.end(), std::back_inserter(contenders),
                   quarnex::all_contenders);
    if (samples.empty()) return 1;
    for (quarnex::usize number = 0; number < contenders.front().size(); ++number) {
        for (quarnex::usize i = 0; i < samples.size(); ++i) {
            quarnex::add_benchmarks(samples[i], contenders[i][number]);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
}
