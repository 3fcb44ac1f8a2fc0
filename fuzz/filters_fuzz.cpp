// fuzz/filters_fuzz.cpp - runs the pre-filters on any block and the classifier on any file
//
//     | filter_flags: 1 | length of the name: 1 | name | block |
#include "format/file_type.h"
#include "format/filters.h"
#include "fuzz_target.h"
#include "plain/plain_file_type.h"
#include "plain/plain_filters.h"

#include <algorithm>
#include <span>
#include <string>

namespace quarnex::fuzz {
namespace {

/// Returns `block` as filtered by the plain filter for `flags`.
bytes filter_plainly(u8 flags, const bytes& block, filter_use use)
{
    switch (flags & filter_mask) {
    case filter_x86:
        return test::plain_x86_filter(block, use == filter_use::apply);
    case filter_delta:
        return test::plain_delta_filter(block, use == filter_use::apply);
    default:
        return block;
    }
}

void expect_inverse(u8 flags, const bytes& block, filter_use use, filter_use inverse)
{
    bytes data(block); // exactly as long as the block
    run_filter(flags, data, use);
    require(data == filter_plainly(flags, block, use), "a filter matches the plain filter");
    run_filter(flags, data, inverse);
    require(data == block, "the two directions of a filter are inverse");
}

void expect_sound(const bytes& sample, const bytes& name)
{
    require(classify_text(sample) == test::plain_text_type(sample),
            "the text type matches the plain classifier's");
    file_parameters parameters;
    classify_file(sample, {reinterpret_cast<const char*>(name.data()), name.size()}, parameters);
    require(parameters.codec.lit_ctx_bits <= 8, "there are at most 8 literal context bits");
    require(parameters.filter_flags == 0 || parameters.filter_flags == filter_x86,
            "the classifier selects the x86 filter or none");
}

void filter_any(std::span<const u8> input)
{
    if (input.size() < 2) return;
    const u8 flags = input[0];
    const auto start = input.begin() + 2;
    const auto end_of_name = start + std::min<std::ptrdiff_t>(input[1], input.end() - start);
    const bytes name(start, end_of_name);
    const bytes block(end_of_name, input.end());
    expect_inverse(flags, block, filter_use::apply, filter_use::undo);
    expect_inverse(flags, block, filter_use::undo, filter_use::apply);
    expect_sound(block, name);
}

bytes seed_of(u8 flags, const std::string& name, const bytes& block)
{
    return test::joined({{flags, static_cast<u8>(name.size())}, test::bytes_of(name), block});
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for (const u8 flags : {u8{0}, filter_x86, filter_delta}) {
        for (const test::shape& kind : test::all_shapes()) {
            seeds.push_back(seed_of(flags, "dir/name.exe", kind.make(300, 1)));
        }
        seeds.push_back(seed_of(flags, "", {}));
        seeds.push_back(seed_of(flags, "NAME.TXT", {0xEF, 0xBB, 0xBF, 'a', 0xE2, 0x82, 0xAC}));
        seeds.push_back(seed_of(flags, "a.jpeg", {0xFF, 0xFE, 'a', 0, '\n', 0}));
        seeds.push_back(seed_of(flags, "a.c", {0xC8, 0x85, 0x93, 0x93, 0x96, 0x40, 0xA6, 0x15}));
        seeds.push_back(
            seed_of(flags, "a.sys", {0xE8, 0xE8, 0xFF, 0xFF, 0xFE, 0, 0xE9, 0, 0, 0, 0}));
    }
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::filter_any({data, size});
    return 0;
}
