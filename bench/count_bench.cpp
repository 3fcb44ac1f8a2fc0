// count_bench - runs one hot loop, for callgrind to count its instructions
//
//     count_bench --list           prints the names of the loops
//     count_bench --environment    prints what the counts depend on besides the sources
//     count_bench LOOP             runs a loop once, in the function counted_run()
//
// A loop is an encoder or a decoder with one block in memory, e.g. encode/17 or decode/50.  The
// block is generated and the table sizes are defaults that don't depend on the machine, so the
// counts differ only with the compiler and the instruction sets that the codecs detect
// (bit_instructions.h, vector_instructions.h).  Valgrind reports the machine's instruction sets as
// far as it emulates them.  `scripts/bench --counts` compares the counts with those in counts.csv.
#include "common/bit_instructions.h"
#include "common/vector_instructions.h"
#include "support/codec_runs.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace quarnex {
namespace {

struct loop {
    std::string name;
    codec_parameters parameters;
    bool encodes;
};

std::vector<loop> all_loops()
{
    std::vector<loop> loops;
    for (const bool encodes : {true, false}) {
        for (u8 method = first_method; method <= last_method; ++method) {
            for (u8 level = 0; level <= last_level; ++level) {
                codec_parameters parameters = test::parameters_of(method, level);
                parameters.lit_ctx_bits = 4;
                loops.push_back({(encodes ? "encode/" : "decode/") + std::to_string(method) +
                                     std::to_string(level),
                                 parameters, encodes});
            }
        }
    }
    return loops;
}

/// Returns a block of words, records, machine code, runs and copies of earlier parts.
test::bytes make_block()
{
    const auto part = [](const char* shape, usize kib) {
        return test::find_shape(shape).make(kib << 10, kib);
    };
    return test::joined({part("text", 448), part("records", 160), part("machine_code", 80),
                         part("runs", 48), part("mixture", 32)});
}

const codec_entry* counted_codec;

/// The function whose instructions are counted, including those of all functions that it calls.
extern "C" [[gnu::noinline]] codec_result counted_run(const codec_job& job, void* state)
{
    return counted_codec->run(job, state);
}

/// Returns `codec` with counted_run() as its run().
codec_entry counted(const codec_entry& codec)
{
    counted_codec = &codec;
    codec_entry entry = codec;
    entry.run = counted_run;
    return entry;
}

/// Runs a loop once.  Returns false if the codec fails.
bool run_loop(const loop& chosen)
{
    const codec_parameters& parameters = chosen.parameters;
    test::bytes block = make_block();
    const auto size = static_cast<u32>(block.size());
    if (!chosen.encodes) {
        const codec_entry decoder = counted(*decoder_table[parameters.method]);
        const test::bytes payload = test::encode(block, parameters);
        return test::decode_with(decoder, payload, size, parameters) == block;
    }
    const codec_entry encoder = counted(*encoder_table[parameters.method]);
    block.resize(size + in_slack);
    codec_job job{.parameters = parameters, .in_buf = block.data(), .in_len = size};
    const u32 length = test::run_codec(encoder, job, size + out_slack).result.length;
    return length != 0 && length < size;
}

void print_environment()
{
#if defined(__clang__)
    std::printf("Clang %s", __clang_version__);
#else
    std::printf("GCC %s", __VERSION__);
#endif
    std::printf(", %zu bits", 8 * sizeof(void*));
    if (has_bit_instructions()) std::printf(", BMI2");
    if (has_avx2()) std::printf(", AVX2");
    std::printf("\n");
}

} // namespace
} // namespace quarnex

int main(int argc, char** argv)
{
    const std::string_view what = argc == 2 ? argv[1] : "";
    if (what == "--environment") {
        quarnex::print_environment();
        return EXIT_SUCCESS;
    }
    for (const quarnex::loop& loop : quarnex::all_loops()) {
        if (what == "--list") std::puts(loop.name.c_str());
        if (what != loop.name) continue;
        if (quarnex::run_loop(loop)) return EXIT_SUCCESS;
        std::fprintf(stderr, "count_bench: %s failed\n", loop.name.c_str());
        return EXIT_FAILURE;
    }
    if (what == "--list") return EXIT_SUCCESS;
    std::fputs("usage: count_bench --list | --environment | LOOP\n", stderr);
    return EXIT_FAILURE;
}
