// fuzz/interface_fuzz.cpp - compares the C interface with the engine of the program
//
//     | parameters: 6 bytes | control | damage: offset: 2 bytes, value | content |
//
// The content is repeated to more than a block if the control byte says so.  Files of the engine
// are in memory and opened by their names under /proc.
#include "api_input.h"
#include "driver_files.h"
#include "pipeline/drivers.h"

namespace quarnex::fuzz {
namespace {

// The control byte, besides repeats_mask.
constexpr u32 threads_shift = 2; // 2 bits
constexpr u8 damages = 16;

driver_files& shared_files()
{
    static driver_files shared;
    return shared;
}

file_parameters parameters_of(const qrx_params& params)
{
    file_parameters parameters;
    parameters.codec.method = static_cast<u8>(params.method);
    parameters.codec.level = static_cast<u8>(params.level);
    parameters.codec.lit_ctx_bits = static_cast<u8>(params.context_bits);
    parameters.codec.hash_bits = static_cast<i32>(params.hash_bits);
    parameters.codec.chain_bits = static_cast<i32>(params.chain_bits);
    parameters.filter_flags = static_cast<u8>(params.filter);
    parameters.block_mb = static_cast<u16>(params.block_mib);
    return parameters;
}

/// Runs a driver on a source with the content `input`; returns the content of its destination.
template <class Driver>
bytes run_engine(const bytes& input, Driver driver)
{
    driver_files& files = shared_files();
    files.source.fill(input);
    files.destination.fill({});
    const std::string source = files.source.name();
    const std::string destination = files.destination.name();
    engine work(system_allocator, 0, files.recorder.watcher());
    require(driver(work, file_names{source.c_str(), destination.c_str()}) == status::done,
            "a driver succeeds");
    files.recorder.take();
    return files.destination.content();
}

bytes engine_compressed(const qrx_params& params, const bytes& content)
{
    return run_engine(content, [&](engine& work, const file_names& names) {
        return compress_file(work, names, parameters_of(params), false);
    });
}

bytes engine_restored(const bytes& image)
{
    return run_engine(image, decompress_file);
}

struct outcome {
    qrx_status result;
    bytes content;
};

outcome restored(const bytes& image, u32 threads, u32 flags)
{
    auto options = sized<qrx_options>();
    options.threads = threads;
    options.flags = flags;
    u64 size = 0;
    require(qrx_decompressed_size(image.data(), image.size(), &size) == QRX_OK,
            "an image has a header");
    bytes content(in_memory(size));
    usize got = 0;
    const qrx_status result =
        qrx_decompress(&options, image.data(), image.size(), content.data(), content.size(), &got);
    content.resize(got);
    return {result, std::move(content)};
}

codec_ptr make_codec(const qrx_params& params)
{
    qrx_codec* codec = nullptr;
    require(qrx_codec_new(&codec, &params, nullptr) == QRX_OK, "a codec is made");
    return codec_ptr(codec);
}

bytes payload_at(qrx_reader& reader, u64 block, usize length)
{
    bytes payload(length);
    usize size = 0;
    require(qrx_reader_payload(&reader, block, payload.data(), length, &size) == QRX_OK,
            "each block has a payload");
    payload.resize(size);
    payload.shrink_to_fit(); // so that the sanitizer sees every access past its end
    return payload;
}

/// Requires that a codec makes `payload` from `block`, in its own buffer and in another one.
void check_encoder(qrx_codec& codec, const bytes& block, const bytes& payload)
{
    bytes made(block.size() + QRX_CODEC_SLACK);
    void* lent = nullptr;
    require(qrx_codec_buffer(&codec, block.size(), &lent) == QRX_OK, "a codec lends a buffer");
    std::copy(block.begin(), block.end(), static_cast<u8*>(lent));
    for (const void* const source :
         {static_cast<const void*>(lent), static_cast<const void*>(block.data())}) {
        usize size = 0;
        require(qrx_codec_compress(&codec, source, block.size(), made.data(), made.size(), &size) ==
                    QRX_OK,
                "a codec compresses a block");
        require(size == payload.size() && std::equal(payload.begin(), payload.end(), made.begin()),
                "a codec makes the payload of a file");
    }
}

/// Requires that a codec restores a payload as a reader does.
void check_decoder(qrx_codec& codec, qrx_reader& reader, const bytes& image, u64 block)
{
    auto place = sized<qrx_block_info>();
    require(qrx_reader_block_info(&reader, block, &place) == QRX_OK, "each block has information");
    const bytes payload = payload_at(reader, block, in_memory(place.payload_size));
    bytes expected(in_memory(place.length));
    bytes made(expected.size());
    usize size = 0;
    const qrx_status read =
        qrx_reader_block(&reader, block, expected.data(), expected.size(), &size);
    const qrx_status decoded =
        qrx_codec_decompress(&codec, payload.data(), payload.size(), made.data(), made.size());
    require(decoded == read, "a codec finds the faults that a reader finds");
    const outcome kept = restored(image, 0, QRX_KEEP_DAMAGED);
    const auto begin = kept.content.begin() + static_cast<std::ptrdiff_t>(place.original_offset);
    require(std::equal(made.begin(), made.end(), begin), "a codec restores what a reader restores");
}

void check_blocks(const qrx_params& params, const bytes& image, const bytes& content)
{
    const codec_ptr codec = make_codec(params);
    const reader_ptr reader = open_image(image);
    for (u64 block = 0; block * mib < content.size(); ++block) {
        const auto begin = content.begin() + static_cast<std::ptrdiff_t>(block * mib);
        const usize length = in_memory(std::min<u64>(mib, content.size() - block * mib));
        const bytes original(begin, begin + static_cast<std::ptrdiff_t>(length));
        check_encoder(*codec, original, payload_at(*reader, block, length));
        check_decoder(*codec, *reader, image, block);
    }
}

/// Requires that codec, readers and engine restore the same from an image with a changed byte in
/// a payload.
void check_damaged(const qrx_params& params, bytes image, u32 offset, u8 value, u32 threads)
{
    const reader_ptr intact = open_image(image);
    auto place = sized<qrx_block_info>();
    if (qrx_reader_block_info(intact.get(), 0, &place) != QRX_OK) return;
    image[in_memory(place.offset + offset % place.payload_size)] ^= value;
    const codec_ptr codec = make_codec(params);
    const reader_ptr reader = open_image(image);
    check_decoder(*codec, *reader, image, 0);
    const outcome kept = restored(image, threads, QRX_KEEP_DAMAGED);
    require(kept.result == QRX_OK && kept.content == engine_restored(image),
            "the engine keeps what a lenient reader keeps");
    const outcome strict = restored(image, threads, 0);
    require(std::equal(strict.content.begin(), strict.content.end(), kept.content.begin()),
            "a strict reader delivers the start of it");
}

void compare(input_bytes input)
{
    const qrx_params params = take_params(input);
    const u8 control = static_cast<u8>(input.take());
    const u32 threads = std::min(control >> threads_shift & 3U, 2U);
    const u32 damage_offset = input.take(2);
    const u8 damage = static_cast<u8>(input.take());
    const bytes content = take_content(input, params, control);

    const bytes image = compressed(params, content, false);
    require(image == engine_compressed(params, content), "both compress to the same bytes");
    const bytes sealed = compressed(params, content, true);
    require(sealed.size() == image.size() + 4 &&
                std::equal(image.begin(), image.end(), sealed.begin()),
            "a seal adds 4 bytes");
    require(engine_restored(sealed) == content, "the engine restores a sealed file");
    const outcome plain = restored(sealed, threads, 0);
    require(plain.result == QRX_OK && plain.content == content, "a sealed file is restored");
    check_blocks(params, image, content);
    if ((control & damages) != 0) check_damaged(params, image, damage_offset, damage, threads);
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    u8 control = 0;
    for (u8 method = 1; method <= 5; ++method) {
        for (u8 level = 0; level <= 9; ++level) {
            for (const char* const name : {"text", "records"}) {
                control = static_cast<u8>(control + 21);
                const bytes content = test::find_shape(name).make(900, level);
                seeds.push_back(test::joined(
                    {params_input(method, level, static_cast<u8>((level + method) % 3)),
                     {control, level, 0, 0x11},
                     content}));
            }
        }
    }
    seeds.push_back(test::joined({params_input(1, 0), {0, 0, 0, 0}}));
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::compare(quarnex::fuzz::input_bytes({data, size}));
    return 0;
}
