// fuzz/decoder_fuzz.cpp - runs each decoder on any payload, which can be longer than the block
//
//     | parameters | block length: 2 | payload |
#include "codec_input.h"
#include "common/bytes.h"
#include "method1/m1_codec.h"
#include "method2/m2_codec.h"
#include "method2/m2_streams.h"

#include <algorithm>

namespace quarnex::fuzz {
namespace {

constexpr usize length_bytes = 2;
constexpr usize seed_block = 1500;

/// Returns the method's decoder for processors without bit instructions.
const codec_entry& portable_decoder(u8 method)
{
    switch (method) {
    case 1:
        return m1_portable_decoder;
    case 2:
        return m2_portable_decoder;
    default:
        return *decoder_table[method];
    }
}

/// Requires that the start of a block doesn't depend on where the block ends, although its last
/// bytes are decoded by a form of the loop that checks each of them.  Methods 3 and 4 are left out,
/// since their codes depend on the block's length.
void decode_less(const codec_entry& decoder, const codec_parameters& parameters,
                 std::span<const u8> payload, const coded& whole)
{
    constexpr u32 max_removed = 600; // more than any form of a loop writes without a check
    const u32 length = whole.result.length;
    const u8 method = parameters.method;
    if (length < 2 || payload.empty() || method == 3 || method == 4) return;
    const u32 out_len = length - 1 - payload.back() * 3U % std::min(length - 1, max_removed);
    const coded less = decode(decoder, parameters, payload, out_len, 0xA5);
    require(less.result.length == out_len &&
                std::equal(less.out.begin(), less.out.end(), whole.out.begin()),
            "a shorter block has the same start");
}

void decode_any(std::span<const u8> input)
{
    if (input.size() < parameter_bytes + length_bytes) return;
    const codec_parameters parameters = take_parameters(input);
    const codec_entry& decoder = *decoder_table[parameters.method];
    const u32 out_len = u32{load_u16(input.data())} + 1;
    // In a file it is shorter than the block; the search for a lost header also tries shorter
    // blocks.
    const auto payload = input.subspan(length_bytes);

    const coded first = decode(decoder, parameters, payload, out_len, 0);
    const u32 length = first.result.length;
    require(length <= out_len, "a decoder produces 0 to out_len bytes");
    const coded second =
        decode(portable_decoder(parameters.method), parameters, payload, out_len, 0xA5);
    require(second.result.length == length && second.result.exact_end == first.result.exact_end &&
                std::equal(first.out.begin(),
                           first.out.begin() + static_cast<std::ptrdiff_t>(length),
                           second.out.begin()),
            "the output depends neither on the processor nor on the buffer's old content");
    decode_less(decoder, parameters, payload, first);
}

bytes seed_of(const codec_parameters& parameters, const bytes& payload, usize out_len)
{
    bytes seed = start_input(parameters);
    seed.resize(parameter_bytes + length_bytes);
    store_u16(&seed[parameter_bytes], static_cast<u16>(out_len - 1));
    seed.insert(seed.end(), payload.begin(), payload.end());
    return seed;
}

/// Returns a seed with tokens of all kinds, some of which no encoder writes.
bytes seed_of_method_2(u8 level)
{
    const test::m2_block block = test::random_m2_block(level, level, 60).match(20000, 33);
    const codec_parameters parameters{
        .method = 2, .level = level, .hash_bits = 12, .chain_bits = 2};
    return seed_of(parameters, block.stream(), block.size());
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for_each_cell_and_shape(
        seed_block, [&](const codec_parameters& parameters, const bytes& block) {
            const bytes payload = payload_of(parameters, block);
            if (payload.size() == block.size()) return;
            seeds.push_back(seed_of(parameters, payload, block.size()));
            if (parameters.level % 8 == 0)
                seeds.push_back(seed_of(parameters, payload, payload.size() / 2 + 1));
        });
    for (u8 level = 0; level <= last_level; ++level) seeds.push_back(seed_of_method_2(level));
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::decode_any({data, size});
    return 0;
}
