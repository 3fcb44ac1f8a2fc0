// fuzz/options_fuzz.cpp - parses any command line
//
//     | number of processors: 1 | argv, separated by NULs |
#include "frontend/options.h"
#include "fuzz_target.h"
#include "pipeline/engine.h"

#include <algorithm>
#include <span>

namespace quarnex::fuzz {
namespace {

using argument = std::vector<char>; // a heap block of exactly the argument's size

std::vector<argument> split(std::span<const u8> text)
{
    std::vector<argument> arguments;
    for (auto begin = text.begin(); begin != text.end();) {
        const auto end = std::find(begin, text.end(), 0);
        arguments.emplace_back(begin, end).push_back('\0');
        arguments.back().shrink_to_fit();
        begin = end == text.end() ? end : end + 1;
    }
    return arguments;
}

void check(const options& parsed)
{
    require(parsed.thread_count <= max_workers, "there are at most max_workers workers");
    require(!parsed.names.empty(), "there is an input");
    const file_parameters& parameters = parsed.job_template;
    if (parsed.mode == direction::decompress) return;
    require(parameters.block_mb >= 1 && parameters.block_mb <= 2047, "the block size is in range");
    require(parameters.codec.hash_bits <= 30, "the hash size is in range");
    require(is_method(parameters.codec.method), "the method is valid");
    require(parameters.codec.level <= last_level, "the level is valid");
}

void parse_any(std::span<const u8> input)
{
    if (input.empty()) return;
    const u32 processors = input[0] != 0 ? input[0] : 1;
    const std::vector<argument> arguments = split(input.subspan(1));
    std::vector<const char*> argv;
    for (const argument& each : arguments) argv.push_back(each.data());
    argv.push_back(nullptr);

    const options parsed =
        parse_options(static_cast<int>(arguments.size()), argv.data(), processors);
    if (parsed.fault == option_fault::none) check(parsed);
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for (const char* const line :
         {"quarnex -10 a b", "/usr/bin/quarnex -12 -b8 -D20 -p2 -v in1 in2 out", "unquarnex x y",
          "quarnex -d -p0 x.qrx y", "quarnex -5 -r tree out", "quarnex -h", "quarnex -1x a b",
          "quarnex -10 -b0 a b", "quarnex -11 -b65537 -p-1 a b", "quarnex -10 -D31 a b",
          "quarnex -10 -D-99999999999999999999 a b", "quarnex - -- a"}) {
        bytes& seed = seeds.emplace_back(1, 4);
        for (const char* c = line; *c != '\0'; ++c) {
            seed.push_back(*c == ' ' ? 0 : static_cast<u8>(*c));
        }
    }
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::parse_any({data, size});
    return 0;
}
