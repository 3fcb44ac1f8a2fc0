// fuzz/decoder_fuzz.cpp - each decoder with any payload
//
//     | parameters | block length: 2 | payload |
#include "codec_input.h"
#include "common/bytes.h"
#include "method1/m1_codec.h"

#include <algorithm>

namespace quarnex::fuzz {
namespace {

constexpr usize length_bytes = 2;
constexpr usize seed_block = 1500;

void decode_any(std::span<const u8> input)
{
    if (input.size() < parameter_bytes + length_bytes) return;
    const file_parameters parameters = take_parameters(input);
    const codec_entry* const decoder = find_decoder(parameters.method);
    if (decoder == nullptr) return;
    const codec_entry& other = parameters.method == 1 ? m1_portable_decoder : *decoder;
    const u32 out_len = u32{load_u16(input.data())} + 1;
    // A payload as long as the block is a stored one, and none is longer.
    const auto payload = input.subspan(length_bytes)
                             .first(std::min<usize>(input.size() - length_bytes, out_len - 1));

    const coded first = decode(*decoder, parameters, payload, out_len, 0);
    require(first.length >= 0 && static_cast<u32>(first.length) <= out_len,
            "a decoder produces 0 to out_len bytes");
    const coded second = decode(other, parameters, payload, out_len, 0xA5);
    require(
        second.length == first.length &&
            std::equal(first.out.begin(), first.out.begin() + first.length, second.out.begin()),
        "what a decoder produces depends neither on the processor nor on the buffer's old content");
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for_each_cell_and_shape(seed_block, [&](const file_parameters& parameters, const bytes& block) {
        const bytes payload = payload_of(parameters, block);
        if (payload.size() == block.size()) return;
        bytes& seed = seeds.emplace_back(start_input(parameters));
        seed.resize(parameter_bytes + length_bytes);
        store_u16(&seed[parameter_bytes], seed_block - 1);
        seed.insert(seed.end(), payload.begin(), payload.end());
    });
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::decode_any({data, size});
    return 0;
}
