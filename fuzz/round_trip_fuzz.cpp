// fuzz/round_trip_fuzz.cpp - each encoder with any block, and its decoder behind it
//
//     | parameters | block |
#include "codec_input.h"

#include <algorithm>

namespace quarnex::fuzz {
namespace {

constexpr usize seed_block = 900;

bool starts_with(const bytes& buffer, std::span<const u8> content)
{
    return std::equal(content.begin(), content.end(), buffer.begin());
}

void encode_and_decode(std::span<const u8> input)
{
    if (input.size() <= parameter_bytes) return; // an empty block is given to no codec
    const file_parameters parameters = take_parameters(input);
    if (!has_encoder(parameters.method, parameters.level)) return;

    const coded stream = encode(parameters, input);
    require(stream.length > 0, "an encoder produces something");
    const auto length = static_cast<usize>(stream.length);
    require(length <= input.size(), "a stream is not longer than its block");
    if (length == input.size()) {
        require(starts_with(stream.out, input), "a stored block is the block itself");
        return;
    }
    const auto out_len = static_cast<u32>(input.size());
    const coded block = decode(*find_decoder(parameters.method), parameters,
                               std::span(stream.out).first(length), out_len, 0xA5);
    require(block.length == static_cast<i32>(out_len), "the decoder produces the whole block");
    require(starts_with(block.out, input), "the block comes back");
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for_each_cell_and_shape(seed_block, [&](const file_parameters& parameters, const bytes& block) {
        bytes& seed = seeds.emplace_back(start_input(parameters));
        seed.insert(seed.end(), block.begin(), block.end());
    });
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::encode_and_decode({data, size});
    return 0;
}
