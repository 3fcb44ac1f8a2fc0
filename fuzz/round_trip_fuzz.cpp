// fuzz/round_trip_fuzz.cpp - runs each encoder on any block, compares it with the plain encoder and
// decodes the result
//
//     | parameters | block |
#include "codec_input.h"
#include "plain/plain_encode.h"

#include <algorithm>

namespace quarnex::fuzz {
namespace {

constexpr usize seed_block = 900;
constexpr usize max_compared = 1200; // the plain encoders are slow

bool starts_with(const bytes& buffer, std::span<const u8> content)
{
    return std::equal(content.begin(), content.end(), buffer.begin());
}

void encode_and_decode(std::span<const u8> input)
{
    if (input.size() <= parameter_bytes) return; // codecs never get empty blocks
    const codec_parameters parameters = take_parameters(input);

    const coded stream = encode(parameters, input);
    const usize length = stream.result.length;
    require(length > 0, "an encoder produces at least one byte");
    require(length <= input.size(), "a payload is not longer than its block");
    if (input.size() <= max_compared) {
        const bytes expected = test::plain_encode(bytes(input.begin(), input.end()), parameters);
        require(length == expected.size() && starts_with(stream.out, expected),
                "the stream equals the plain encoder's");
    }
    if (length == input.size()) {
        require(starts_with(stream.out, input), "a stored block equals the block");
        return;
    }
    const auto out_len = static_cast<u32>(input.size());
    const coded block = decode(*decoder_table[parameters.method], parameters,
                               std::span(stream.out).first(length), out_len, 0xA5);
    require(block.result.length == out_len, "the decoder produces the whole block");
    require(starts_with(block.out, input), "the block is restored");
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for_each_cell_and_shape(seed_block,
                            [&](const codec_parameters& parameters, const bytes& block) {
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
