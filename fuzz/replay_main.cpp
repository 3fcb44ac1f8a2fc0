// fuzz/replay_main.cpp - runs a fuzz target without libFuzzer
//
//     X_replay run COUNT       calls the target with all seeds and COUNT mutated ones, the same in
//                              each run; an input that ends the process is saved to a file
//     X_replay file FILE...    calls the target with the content of files
//     X_replay seeds DIR       writes the seeds for libFuzzer, one file each
#include "fuzz_target.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>

namespace quarnex::fuzz {
namespace {

using test::random_source;

usize random_index(const bytes& input, random_source& random)
{
    return random.below(static_cast<u32>(input.size()));
}

void mutate_once(bytes& input, random_source& random)
{
    const usize at = random_index(input, random);
    const auto position = input.begin() + static_cast<std::ptrdiff_t>(at);
    const usize count = std::min<usize>(1 + random.below(16), input.size() - at);
    switch (random.below(6)) {
    case 0:
        *position ^= static_cast<u8>(1U << random.below(8));
        break;
    case 1:
        *position = static_cast<u8>(random.next());
        break;
    case 2:
        std::fill_n(position, count, random.below(2) == 0 ? 0x00 : 0xFF);
        break;
    case 3:
        input.insert(position, random.below(16) + 1, static_cast<u8>(random.next()));
        break;
    case 4:
        input.erase(position, position + static_cast<std::ptrdiff_t>(count));
        break;
    default:
        input.resize(at);
    }
}

/// Returns input `number`: a seed, or after the last seed a mutated one.
bytes make_input(const std::vector<bytes>& seeds, u32 number)
{
    if (number < seeds.size()) return seeds[number];
    random_source random(number);
    bytes input = seeds[random.below(static_cast<u32>(seeds.size()))];
    for (u32 n = 1 + random.below(4); n != 0 && !input.empty(); --n) mutate_once(input, random);
    return input;
}

void call_target(const bytes& input)
{
    const bytes copy(input); // without spare capacity
    LLVMFuzzerTestOneInput(copy.data(), copy.size());
}

/// Returns a number in shared memory, which outlives a forked process.
u32* make_shared_number()
{
    void* const page =
        mmap(nullptr, sizeof(u32), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(page != MAP_FAILED, "mmap() succeeds");
    return static_cast<u32*>(page);
}

int run(const std::string& tool, u32 count)
{
    const std::vector<bytes> seeds = make_seeds();
    const auto all = static_cast<u32>(seeds.size()) + count;
    u32* const number = make_shared_number();
    const pid_t child = fork();
    require(child >= 0, "fork() succeeds");
    if (child == 0) {
        for (*number = 0; *number < all; ++*number) call_target(make_input(seeds, *number));
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status == 0) {
        std::printf("%u inputs\n", all);
        return 0;
    }
    if (*number == all) {
        std::fprintf(stderr, "failed at exit, after the last input\n");
        return 1;
    }
    const std::string file = tool + "-" + std::to_string(*number) + ".input";
    test::write_file(file, make_input(seeds, *number));
    std::fprintf(stderr, "failed; run '%s file %s' to reproduce it\n", tool.c_str(), file.c_str());
    return 1;
}

int write_seeds(const std::string& directory)
{
    std::filesystem::create_directories(directory);
    u32 number = 0;
    for (const bytes& seed : make_seeds()) {
        test::write_file(directory + "/seed-" + std::to_string(number++), seed);
    }
    return 0;
}

} // namespace
} // namespace quarnex::fuzz

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv, argv + argc);
    const std::string mode = argc > 2 ? arguments[1] : "";
    if (mode == "run") {
        return quarnex::fuzz::run(arguments[0], static_cast<unsigned>(std::stoul(arguments[2])));
    }
    if (mode == "seeds") return quarnex::fuzz::write_seeds(arguments[2]);
    if (mode == "file") {
        for (int i = 2; i < argc; ++i) {
            quarnex::fuzz::call_target(quarnex::test::read_file(argv[i]));
        }
        return 0;
    }
    std::fprintf(stderr, "usage: %s run COUNT | file FILE... | seeds DIR\n", argv[0]);
    return 1;
}
