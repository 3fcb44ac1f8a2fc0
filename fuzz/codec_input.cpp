#include "codec_input.h"

#include "common/scratch.h"

#include <utility>

namespace quarnex::fuzz {
namespace {

// The smallest value of each parameter and the number of values that inputs select from.
constexpr u8 methods = last_method - first_method + 1;
constexpr u8 levels = last_level + 1;
constexpr u8 lit_ctx_choices = 9;
constexpr i32 min_hash_bits = 10;
constexpr u8 hash_bits_choices = 9; // larger tables would only be slower
constexpr i32 min_chain_bits = 1;
constexpr u8 chain_bits_choices = 8;

bytes with_slack(std::span<const u8> content)
{
    bytes buffer;
    buffer.reserve(content.size() + in_slack);
    buffer.assign(content.begin(), content.end());
    buffer.insert(buffer.end(), in_slack, 0);
    return buffer;
}

codec_result run_codec(const codec_entry& codec, codec_job& job)
{
    scratch memory(system_allocator);
    job.memory = &memory;
    void* const state = codec.init(job);
    require(state != nullptr, "a codec initializes");
    const codec_result result = codec.run(job, state);
    codec.release(job, state);
    require(result.status == codec_status::done, "a codec has enough memory");
    return result;
}

} // namespace

codec_parameters take_parameters(std::span<const u8>& input)
{
    codec_parameters parameters;
    parameters.method = static_cast<u8>(first_method + input[0] % methods);
    parameters.level = input[1] % levels;
    parameters.lit_ctx_bits = input[2] % lit_ctx_choices;
    parameters.hash_bits = min_hash_bits + input[3] % hash_bits_choices;
    parameters.chain_bits = min_chain_bits + input[4] % chain_bits_choices;
    input = input.subspan(parameter_bytes);
    return parameters;
}

bytes start_input(const codec_parameters& parameters)
{
    return {static_cast<u8>(parameters.method - first_method), parameters.level,
            parameters.lit_ctx_bits, static_cast<u8>(parameters.hash_bits - min_hash_bits),
            static_cast<u8>(parameters.chain_bits - min_chain_bits)};
}

void for_each_cell_and_shape(
    usize block_size, const std::function<void(const codec_parameters&, const bytes&)>& visit)
{
    codec_parameters parameters{.hash_bits = 12, .chain_bits = 2};
    for (parameters.method = first_method; parameters.method <= last_method; ++parameters.method) {
        for (parameters.level = 0; parameters.level <= last_level; ++parameters.level) {
            for (const test::shape& shape : test::all_shapes()) {
                visit(parameters, shape.make(block_size, parameters.level));
            }
        }
    }
}

coded encode(const codec_parameters& parameters, std::span<const u8> block)
{
    const bytes in = with_slack(block);
    bytes out(block.size() + out_slack);
    codec_job job;
    job.parameters = parameters;
    job.in_buf = in.data();
    job.in_len = static_cast<u32>(block.size());
    job.out_buf = out.data();
    const codec_result result = run_codec(*encoder_table[parameters.method], job);
    return {result, std::move(out)};
}

coded decode(const codec_entry& decoder, const codec_parameters& parameters,
             std::span<const u8> payload, u32 out_len, u8 fill)
{
    const bytes in(payload.begin(), payload.end());
    bytes out(out_len, fill);
    codec_job job;
    job.parameters = parameters;
    job.in_buf = in.data();
    job.in_len = static_cast<u32>(payload.size());
    job.out_buf = out.data();
    job.out_len = out_len;
    const codec_result result = run_codec(decoder, job);
    return {result, std::move(out)};
}

bytes payload_of(const codec_parameters& parameters, const bytes& block)
{
    coded stream = encode(parameters, block);
    require(stream.result.length > 0, "a seed can be encoded");
    stream.out.resize(stream.result.length);
    return std::move(stream.out);
}

} // namespace quarnex::fuzz
