// fuzz/container_fuzz.cpp - runs the decompression driver on any .qrx image
//
//     | control: bounds: 2 bits, workers: 1 bit | image |
//
// Source and destination are files in memory, opened by their names under /proc.
#include "codec_input.h"
#include "driver_files.h"
#include "format/records.h"
#include "image_input.h"
#include "pipeline/drivers.h"
#include "support/limited_allocator.h"
#include "support/qrx_file.h"

#include <algorithm>
#include <csignal>
#include <optional>
#include <string>
#include <sys/resource.h>

namespace quarnex::fuzz {
namespace {

constexpr u64 max_written = 2 * max_data; // file size limit: writes beyond it fail

/// Larger blocks would only be slow, so their memory is refused.
constexpr usize max_allocation = usize{8} << 20;
/// Upper bound for the engine's queues, which don't depend on the file.
constexpr u64 engine_bytes = 1 << 16;

// The two low bits of the control byte: which of the header's sizes are not bounded.
constexpr u8 bounds_mask = 3;
constexpr u8 any_size = 0;
constexpr u8 any_block_mb = 1;
constexpr u8 both_bounded = 2;
constexpr u8 none_bounded = 3;
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

/// Returns the layout that the header of `image` states; nothing if the header is invalid.
std::optional<file_layout> layout_of(const bytes& image)
{
    std::array<u8, file_header_bytes> head;
    file_header header{};
    if (image.size() < head.size()) return {};
    std::copy_n(image.begin(), head.size(), head.begin());
    return unpack_file_header(head, header) ? lay_out(header) : std::nullopt;
}

/// Returns the length of the longest block with a record, up to the first damage of the layout.
u32 max_block_length(const file_layout& layout, const bytes& image)
{
    u32 longest = 0;
    usize at = file_header_bytes;
    for (u32 sequence = 0; image.size() - at >= record_head_bytes; ++sequence) {
        const record_head head = unpack_record_head(&image[at]);
        const auto place = find_block(layout, head, sequence);
        at += record_head_bytes;
        if (!place || head.size > image.size() - at) break;
        longest = std::max(longest, place->length);
        at += head.size;
    }
    return longest;
}

/// Requires that no allocation is larger than the blocks need, whatever sizes the header claims.
void check_memory(const test::limited_allocator& memory, const file_layout& layout,
                  const bytes& image)
{
    const codec_parameters& parameters = layout.parameters.codec;
    const u32 length = max_block_length(layout, image);
    const bool is_coded = length != 0 && is_method(parameters.method);
    const u64 codec_bytes =
        is_coded ? decoder_table[parameters.method]->memory(parameters, length) : 0;
    for (const auto& call : memory.allocated())
        require(call.size <= std::max({engine_bytes, u64{length}, codec_bytes}),
                "memory is allocated by the length of the blocks");
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
    bound_sizes({.original_size = bounds != any_size && bounds != none_bounded,
                 .block_size = bounds != any_block_mb && bounds != none_bounded},
                image);
    files.source.fill(image);
    files.destination.fill({});

    const u32 workers = (control & with_workers) != 0 ? 2 : 0;
    test::limited_allocator memory;
    memory.refuse_from(max_allocation);
    engine work(memory.get(), workers, files.recorder.watcher());
    const status result = run_driver(work, files);
    const auto events = files.recorder.take();
    const bool reported = std::any_of(events.begin(), events.end(), is_failure);
    require(reported == (work.first_failure() != status::done),
            "a failure is reported if and only if there is a first failure");
    require(workers != 0 || result == work.first_failure(),
            "without workers the driver returns the first failure");
    const std::optional<file_layout> layout = layout_of(image);
    require(files.destination.size() <= (layout ? layout->original_size : 0),
            "no byte is written past the file's size");
    if (layout) check_memory(memory, *layout, image);
}

/// Returns a file of two blocks, of which only the second has a record.  It is short.
test::qrx_file short_last_block(u16 block_mb)
{
    constexpr u32 length = 100;
    test::qrx_file file;
    file.header.block_mb = block_mb;
    file.header.original_size = (u64{block_mb} << 20) + length;
    file.records = {{test::displacement_of(1), test::m1_run_payload('a', length)}};
    return file;
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
    for (const u8 control : {any_size, any_block_mb, both_bounded, none_bounded}) {
        seeds.push_back(seed_of(control, test::swapped_file()));
        seeds.push_back(seed_of(control | with_workers, test::swapped_file()));
    }
    seeds.push_back(seed_of(both_bounded, {{}, {{}}})); // an empty file
    seeds.push_back(seed_of(none_bounded, short_last_block(2047)));
    seeds.push_back(seed_of(none_bounded, short_last_block(UINT16_MAX)));
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
