// fuzz/container_fuzz.cpp - runs the decompression driver on any .qrx image
//
//     | control: bounds: 2 bits, workers: 1 bit | image |
//
// Source and destination are files in memory, opened by their names under /proc.
#include "codec_input.h"
#include "format/container.h"
#include "memory_file.h"
#include "pipeline/drivers.h"
#include "support/event_recorder.h"
#include "support/qrx_file.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <string>
#include <sys/resource.h>

namespace quarnex::fuzz {
namespace {

constexpr u64 mib = u64{1} << 20;
constexpr u64 max_data = 4 * mib;    // maximum original size, if bounded
constexpr u64 max_written = 8 * mib; // file size limit: writes beyond it fail

// The two low bits of the control byte: which of the header's sizes is not bounded.  Never both:
// blocks of 2 GiB would only be slow.
constexpr u8 bounds_mask = 3;
constexpr u8 any_size = 0;
constexpr u8 any_block_mb = 1;
constexpr u8 both_bounded = 2;
constexpr u8 with_workers = 4;

/// State that all runs share.
struct workshop {
    workshop()
    {
        std::signal(SIGXFSZ, SIG_IGN); // a write beyond the limit then fails
        const rlimit limit{max_written, max_written};
        require(setrlimit(RLIMIT_FSIZE, &limit) == 0, "setrlimit() succeeds");
        // Discards the driver's messages.  libFuzzer and the sanitizers don't print through stdio.
        stdout = std::fopen("/dev/null", "w");
        stderr = stdout;
    }

    memory_file source;
    memory_file destination;
    test::event_recorder recorder;
};

/// Bounds the sizes in the header of `image`; returns the size of the original file.
u64 bound_work(u8 bounds, std::span<u8> image)
{
    std::array<u8, file_header_bytes> head;
    file_header header{};
    if (image.size() < head.size()) return 0;
    std::copy_n(image.begin(), head.size(), head.begin());
    if (!unpack_file_header(head, header)) return 0;
    if (bounds != any_size) header.original_size %= max_data + 1;
    if (bounds != any_block_mb) header.parameters.block_mb = 1;
    head = pack_file_header(header);
    std::copy(head.begin(), head.end(), image.begin());
    return header.original_size;
}

status run_driver(engine& work, const workshop& shop)
{
    const engine_threads threads(work);
    require(threads.ready(), "the threads start");
    const std::string source = shop.source.name();
    const std::string destination = shop.destination.name();
    return decompress_file(work, {source.c_str(), destination.c_str()});
}

bool is_failure(const test::recorded_event& reported)
{
    return reported.kind != event_kind::block_short;
}

void decompress_any(std::span<const u8> input)
{
    static workshop shop;
    if (input.empty()) return;
    const u8 control = input[0];
    bytes image(input.begin() + 1, input.end());
    const u64 size = bound_work(control & bounds_mask, image);
    shop.source.fill(image);
    shop.destination.fill({});

    const u32 workers = (control & with_workers) != 0 ? 2 : 0;
    engine work(system_allocator, workers, shop.recorder.watcher());
    const status result = run_driver(work, shop);
    const auto events = shop.recorder.take();
    const bool reported = std::any_of(events.begin(), events.end(), is_failure);
    require(reported == (work.first_failure() != status::done),
            "a failure is reported if and only if there is a first failure");
    require(workers != 0 || result == work.first_failure(),
            "without workers the driver returns the first failure");
    require(shop.destination.size() <= size, "no byte is written past the file's size");
}

bytes seed_of(u8 control, const test::qrx_file& file)
{
    bytes seed{control};
    const bytes image = test::build_qrx(file);
    seed.insert(seed.end(), image.begin(), image.end());
    return seed;
}

} // namespace

std::vector<bytes> make_seeds()
{
    constexpr usize block_size = 700;
    std::vector<bytes> seeds;
    for (const u8 control : {any_size, any_block_mb, both_bounded}) {
        seeds.push_back(seed_of(control, test::swapped_file()));
        seeds.push_back(seed_of(control | with_workers, test::swapped_file()));
    }
    seeds.push_back(seed_of(both_bounded, {{}, {{}}})); // an empty file
    for_each_cell_and_shape(block_size,
                            [&](const codec_parameters& parameters, const bytes& block) {
                                test::qrx_file file;
                                file.header.original_size = block_size;
                                file.header.method = parameters.method;
                                file.header.level = parameters.level;
                                file.records = {{0, payload_of(parameters, block)}};
                                seeds.push_back(seed_of(both_bounded, file));
                            });
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::decompress_any({data, size});
    return 0;
}
