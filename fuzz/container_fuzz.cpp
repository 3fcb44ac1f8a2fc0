// fuzz/container_fuzz.cpp - runs the decompression driver on any .qrx image
//
//     | control: bounds: 2 bits, workers: 1 bit | image |
//
// Source and destination are files in memory, opened by their names under /proc.
#include "codec_input.h"
#include "driver_files.h"
#include "format/container.h"
#include "image_input.h"
#include "pipeline/drivers.h"
#include "support/qrx_file.h"

#include <algorithm>
#include <csignal>
#include <string>
#include <sys/resource.h>

namespace quarnex::fuzz {
namespace {

constexpr u64 max_written = 2 * max_data; // file size limit: writes beyond it fail

// The two low bits of the control byte: which of the header's sizes is not bounded.  Never both:
// blocks of 2 GiB would only be slow.
constexpr u8 bounds_mask = 3;
constexpr u8 any_size = 0;
constexpr u8 any_block_mb = 1;
constexpr u8 both_bounded = 2;
constexpr u8 with_workers = 4;

/// Returns the state that all runs share.  The first call limits the size of files.
driver_files& shared_files()
{
    static driver_files shared;
    static const bool is_limited = [] {
        std::signal(SIGXFSZ, SIG_IGN); // a write beyond the limit then fails
        const rlimit limit{max_written, max_written};
        return setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }();
    require(is_limited, "setrlimit() succeeds");
    return shared;
}

/// Returns the original size from the header of `image`; 0 if the header is invalid.
u64 original_size_of(const bytes& image)
{
    std::array<u8, file_header_bytes> head;
    file_header header{};
    if (image.size() < head.size()) return 0;
    std::copy_n(image.begin(), head.size(), head.begin());
    return unpack_file_header(head, header) ? header.original_size : 0;
}

status run_driver(engine& work, const driver_files& files)
{
    const engine_threads threads(work);
    require(threads.ready(), "the threads start");
    const std::string source = files.source.name();
    const std::string destination = files.destination.name();
    return decompress_file(work, {source.c_str(), destination.c_str()});
}

bool is_failure(const test::recorded_event& reported)
{
    return reported.kind != event_kind::block_short;
}

void decompress_any(std::span<const u8> input)
{
    driver_files& files = shared_files();
    if (input.empty()) return;
    const u8 control = input[0];
    bytes image(input.begin() + 1, input.end());
    const u8 bounds = control & bounds_mask;
    bound_sizes({.original_size = bounds != any_size, .block_size = bounds != any_block_mb}, image);
    files.source.fill(image);
    files.destination.fill({});

    const u32 workers = (control & with_workers) != 0 ? 2 : 0;
    engine work(system_allocator, workers, files.recorder.watcher());
    const status result = run_driver(work, files);
    const auto events = files.recorder.take();
    const bool reported = std::any_of(events.begin(), events.end(), is_failure);
    require(reported == (work.first_failure() != status::done),
            "a failure is reported if and only if there is a first failure");
    require(workers != 0 || result == work.first_failure(),
            "without workers the driver returns the first failure");
    require(files.destination.size() <= original_size_of(image),
            "no byte is written past the file's size");
}

bytes seed_of(u8 control, const test::qrx_file& file)
{
    return test::joined({{control}, test::build_qrx(file)});
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
